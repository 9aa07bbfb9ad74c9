# The results of bench-host as a plot (SVG): for each pair a bar as long as our time beside theirs, and
# a mark where the target is. What takes more than twice their time ends there; its number tells.

BEGIN {
    FS = "\t"
    longest = 2
}

$1 == "time" {
    name[++count] = $2 ($3 == "-" ? "" : ", " $3)
    ratio[count] = sprintf("%.2f", $5 / $6) + 0
    target[count] = $7 + 0
    length_of[count] = ratio[count] < longest ? ratio[count] : longest
}

function text(x, y, anchor, content) {
    gsub(/&/, "\\&amp;", content)
    gsub(/</, "\\&lt;", content)
    printf "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, content
}

function vertical(x, from, to, colour, width) {
    printf "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" stroke-width=\"%s\"/>\n", \
        x, from, x, to, colour, width
}

END {
    left = 290
    row = 20
    top = 62
    width = 860
    scale = (width - left - 60) / longest
    bottom = top + count * row
    height = bottom + 16
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" width=\"%d\" height=\"%d\"", \
        width, height, width, height
    print " font-family=\"sans-serif\" font-size=\"12\">"
    print "<title>Our time beside that of the usual tools</title>"
    printf "<rect width=\"%d\" height=\"%d\" fill=\"white\"/>\n", width, height
    text(left, 20, "start", "our time as a part of theirs; shorter is better")
    text(left, 36, "start", "blue: target met, red: missed; black mark: the target")
    for (at = 0; at <= longest; at += 0.25) {
        vertical(left + at * scale, top - 4, bottom, at == 1 ? "#777" : "#ddd", 1)
        if (at == int(at * 2) / 2) text(left + at * scale, top - 8, "middle", sprintf("%.1f", at))
    }
    for (i = 1; i <= count; ++i) {
        y = top + (i - 1) * row
        text(left - 8, y + 14, "end", name[i])
        colour = (ratio[i] > target[i]) ? "#c8553d" : "#4a7fb0"
        printf("<rect x=\"%d\" y=\"%d\" width=\"%.1f\" height=\"%d\" fill=\"%s\"/>\n", left, y + 3, \
            length_of[i] * scale, row - 6, colour)
        vertical(left + target[i] * scale, y + 1, y + row - 1, "black", 2)
        end = length_of[i] > target[i] ? length_of[i] : target[i]
        text(left + end * scale + 6, y + 14, "start", sprintf("%.2f", ratio[i]))
    }
    print "</svg>"
}
