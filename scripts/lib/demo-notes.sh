# What the demo writes down about a tree, and how it tells what has changed; sourced.
# shellcheck shell=bash

# take_notes DIRECTORY: one line per entry below it, "TYPE MODE OWNER GROUP PATH", sorted by path.
take_notes() {
    find "$1" -mindepth 1 \( -type d -printf 'dir' -o -type f -printf 'file' -o -printf '%y' \) \
        -printf ' %#m %u %g %P\n' | LC_ALL=C sort -k 5
}

# show_notes FILE: the same as a table.
show_notes() {
    local type mode owner group path
    printf '    %-4s  %-5s  %-5s  %-8s  %s\n' type mode owner group path
    while read -r type mode owner group path; do
        printf '    %-4s  %-5s  %-5s  %-8s  %s\n' "$type" "$mode" "$owner" "$group" "$path"
    done <"$1"
}

# show_changes BEFORE AFTER: tells what two sets of notes differ in.
show_changes() {
    if cmp -s "$1" "$2"; then
        printf '    nothing\n'
        return
    fi
    local -A before=() after=()
    read_notes before "$1"
    read_notes after "$2"
    show_added 'gone' before after
    show_added 'new' after before
    show_altered
}

# read_notes NAME FILE: fills the associative array NAME, path -> "TYPE MODE OWNER GROUP".
# shellcheck disable=SC2034,SC2004  # a reference to an associative array
read_notes() {
    local -n table=$1
    local type mode owner group path
    while read -r type mode owner group path; do
        table[$path]="$type $mode $owner $group"
    done <"$2"
}

# show_added WORD HERE THERE: the entries of HERE that THERE lacks, a whole directory in one line.
show_added() {
    local -n here=$2 there=$3
    local -A inside=()
    local path top
    for path in "${!here[@]}"; do
        [[ -z ${there[$path]:-} ]] || continue
        top=$path
        while [[ $top == */* && -z ${there[${top%/*}]:-} ]]; do
            top=${top%/*}
        done
        inside[$top]=$((${inside[$top]:-0} + 1))
    done
    for path in "${!inside[@]}"; do
        printf '    %-9s  %s' "$1" "$path"
        [[ ${inside[$path]} -eq 1 ]] || printf ', with the %d entries below it' $((inside[$path] - 1))
        printf '\n'
    done | LC_ALL=C sort
}

# show_altered: the entries of show_changes() whose owner, group or mode differ, by difference.
show_altered() {
    local -A paths=() count=()
    local path what same=0
    for path in "${!before[@]}"; do
        if [[ ${before[$path]} == "${after[$path]:-}" ]]; then
            same=$((same + 1))
        elif [[ -n ${after[$path]:-} ]]; then
            what=$(difference_of "${before[$path]}" "${after[$path]}")
            count[$what]=$((${count[$what]:-0} + 1))
            paths[$what]+=$path$'\n'
        fi
    done
    for what in "${!count[@]}"; do
        printf '    %-9s  %d entries: %s\n' changed "${count[$what]}" "$what"
        show_first "${paths[$what]}"
    done
    [[ $same -eq 0 ]] || printf '    %-9s  %d entries\n' 'as before' "$same"
}

# difference_of OLD NEW: such as "owner anna -> ben".
difference_of() {
    local -a old new names=(type mode owner group)
    local field text=''
    read -ra old <<<"$1"
    read -ra new <<<"$2"
    for field in 0 1 2 3; do
        [[ ${old[field]} == "${new[field]}" ]] ||
            text+="${text:+, }${names[field]} ${old[field]} -> ${new[field]}"
    done
    printf '%s' "$text"
}

# show_first LINES: the first few of them in order, and how many more there are.
show_first() {
    local shown=5
    local -a lines
    mapfile -t lines < <(printf '%s' "$1" | LC_ALL=C sort)
    printf '               %s\n' "${lines[@]:0:shown}"
    [[ ${#lines[@]} -le shown ]] || printf '               ... and %d more\n' $((${#lines[@]} - shown))
}
