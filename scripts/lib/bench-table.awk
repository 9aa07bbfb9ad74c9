# The results of bench-host as Markdown: the machine, a line for each pair, and what else there is to
# say.

BEGIN { FS = "\t" }

$1 == "machine" { print $2 }

$1 == "note" { notes = notes "\n" $2 }

$1 == "calls" {
    works[++work_count] = $2
    calls[$2] = sprintf("%s, %s per %s (%s)", shown($4), shown($5), $3, bound($6))
    has_too_many[$2] = $6 != "-" && $4 > $6 + 0
}

$1 == "time" { lines[++line_count] = $0 }

function shown(value) { return value == "-" ? "not counted" : sprintf("%.2f", value) }

function bound(value) { return value == "-" ? "no target" : "at most " value }

# Two decimals for what takes less than ten milliseconds, and no more digits than mean anything.
function time(value) { return sprintf(value < 10 ? "%.2f" : value < 100 ? "%.1f" : "%.0f", value) }

# The calls of a work stand in its first line: they are the same on every file system.
function calls_of(work,    text) {
    text = calls[work]
    delete calls[work]
    return text
}

function verdict(ratio, target, with_calls) {
    if (ratio > target + 0) return with_calls ? "**no**, nor the calls" : "**no**"
    return with_calls ? "**no**: the calls" : "yes"
}

END {
    print "\n| work | where | beside | ours, ms | theirs, ms | ratio | target | met " \
        "| system calls: ours, theirs |"
    print "|---|---|---|---|---|---|---|---|---|"
    for (i = 1; i <= line_count; ++i) {
        split(lines[i], field, FS)
        # As precise as the targets are.
        ratio = sprintf("%.2f", field[5] / field[6]) + 0
        text = calls_of(field[2])
        printf "| %s | %s | %s | %s | %s | %.2f | %s | %s | %s |\n", field[2], field[3], field[4], \
            time(field[5]), time(field[6]), ratio, field[7], \
            verdict(ratio, field[7], text != "" && has_too_many[field[2]]), text
    }
    if (notes != "") print notes
    for (i = 1; i <= work_count; ++i) {
        text = calls_of(works[i])
        if (text != "") print "\nSystem calls to " works[i] ": " text
    }
}
