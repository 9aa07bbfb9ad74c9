# What the checks of the installed library share; sourced, never run.
# shellcheck shell=bash
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/common.sh"

export LC_ALL=C
umask 022

# expect WHAT EXPECTED ACTUAL: compares two texts and notes a difference.
failures=0
expect() {
    if ! diff -u --label expected <(printf '%s\n' "$2") --label actual <(printf '%s\n' "$3"); then
        printf 'That was: %s\n' "$1" >&2
        failures=$((failures + 1))
    fi
}

# finish WHAT: ends the check with the result of all expectations.
finish() {
    [[ $failures -eq 0 ]] || die "$failures differences from what was expected."
    printf '%s: %s\n' "$script_name" "$*"
}
