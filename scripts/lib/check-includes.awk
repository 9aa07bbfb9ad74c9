# The rules of scripts/check-includes; the files to check are the arguments.

function unit_of(path,    name) {
    name = path
    sub(/^.*\//, "", name)
    sub(/\..*$/, "", name)
    if (name == regexp) return "regexp"
    if (name == tmpfile) return "tmpfile"
    if (name == probes) return "probes"
    return "errors"
}

# The folder of a path, with support/ told apart by what its files are for.
function room_of(path,    room) {
    room = path
    sub(/\/.*$/, "", room)
    return room == "support" ? "support " unit_of(path) : room
}

function may_include(from, to, path) {
    if (from == to || from == "tests" || path == "support/Api.h") return 1
    if (from == "front") return to ~ /^(site|fsutil|conf)$/
    if (from == "site") return to ~ /^(conf|fsutil)$/
    if (from == "fsutil") return to == "conf" || path == "exec/ShellEscape.h"
    if (from == "exec") return to ~ /^(conf|support errors)$/ || path == "fsutil/Descriptor.h"
    if (from == "support tmpfile") return to == "support errors" || path == "conf/StandardStreams.h"
    if (from == "support probes") return to ~ /^(exec|conf|support .*)$/
    if (from == "fuzz") return to != "tests"
    if (from == "bench") return to !~ /^(front|tests)$/
    return 0
}

function report(rule) {
    printf "%s:%d: %s\n", FILENAME, FNR, rule
    broken = 1
}

# Why an include that may_include() refuses is wrong.
function rule_of(from, to) {
    if (to == "front") return wording[from] ? wording[from] : "nobody includes front/"
    if (to ~ /^(tests|bench|fuzz)$/) return "only tests include tests/ and fuzz/, and nobody includes bench/"
    return wording[from]
}

# Goes along the includes of headers from the given one; a header that is met again on its own way
# closes a cycle.
function follow(header, depth,    count, next_ones, i, included) {
    on_the_way[header] = depth
    way[depth] = header
    count = split(includes[header], next_ones, "\n")
    for (i = 1; i < count; ++i) {
        included = next_ones[i]
        if (included in on_the_way)
            report_cycle(depth, included)
        else if (!(included in done))
            follow(included, depth + 1)
    }
    delete on_the_way[header]
    done[header] = 1
}

function report_cycle(depth, included,    i) {
    printf "%s:%d: a cycle: ", way[depth], line_of[way[depth], included]
    for (i = on_the_way[included]; i <= depth; ++i)
        printf "%s -> ", way[i]
    print included
    broken = 1
}

BEGIN {
    wording["conf"] = "conf/ includes nothing of ours"
    wording["fsutil"] = "fsutil/ includes only conf/ and exec/ShellEscape.h"
    wording["site"] = "site/ includes only conf/ and fsutil/"
    wording["front"] = "front/ includes only site/, fsutil/ and conf/"
    wording["exec"] = "exec/ includes only conf/, fsutil/Descriptor.h and the errors of support/"
    wording["support errors"] = "the errors of support/ stand alone"
    wording["support regexp"] = "regular expressions stand alone"
    wording["support tmpfile"] = "temporary files include only errors and conf/StandardStreams.h"
    wording["support probes"] = "the probes of support/ include only exec/, conf/ and support/"
}

/^[ \t]*#[ \t]*include[ \t]*["<]/ {
    quoted = $0 ~ /include[ \t]*"/
    included = $0
    sub(/^[^"<]*["<]/, "", included)
    sub(/[">].*$/, "", included)
    from = room_of(FILENAME)
    to = room_of(included)

    if (included == "iostream" && from !~ /^(tests|bench)$/)
        report("<iostream> costs every start-up; write to the C streams")
    if (index(rooms, " " substr(included, 1, index(included "/", "/") - 1) " ") && included ~ /\//) {
        if (!may_include(from, to, included))
            report(rule_of(from, to))
        if (FILENAME ~ /\.h$/) {
            includes[FILENAME] = includes[FILENAME] included "\n"
            line_of[FILENAME, included] = FNR
            if (!(FILENAME in seen)) {
                seen[FILENAME] = 1
                headers[++header_count] = FILENAME
            }
        }
    } else if (quoted) {
        report("includes are written from the root of the tree")
    }
}

END {
    for (h = 1; h <= header_count; ++h)
        if (!(headers[h] in done))
            follow(headers[h], 1)
    exit broken
}
