# Small functions for the scripts of this project; sourced, never run.
# shellcheck shell=bash

# shellcheck disable=SC2034  # for the scripts that source this
project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
script_name=$(basename "$0")

die() {
    printf '%s: %s\n' "$script_name" "$*" >&2
    exit 1
}

# require_root WHY
require_root() {
    [[ $(id -u) -eq 0 ]] || die "must be run as root: $1."
}

# require_private_mounts: stops unless this machine lets us make mounts that nobody else sees.
require_private_mounts() {
    local refusal
    refusal=$(unshare --mount --propagation private true 2>&1) ||
        die "cannot make private mounts here ($refusal). In a container, CAP_SYS_ADMIN allows it."
}

# quietly LOG SENTENCE COMMAND...: runs a command with its output in a log file and tells in one
# line what is going on. A failure shows the log and ends the script with the command's status.
quietly() {
    local log=$1 sentence=$2 status=0
    shift 2
    mkdir -p "$(dirname "$log")"
    printf '%s ... ' "$sentence"
    SECONDS=0
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if [[ $status -eq 0 ]]; then
        printf 'done (%d s)\n' "$SECONDS"
        return
    fi
    printf 'failed. This is %s:\n\n' "$log"
    cat "$log"
    exit "$status"
}

build_preset() {
    cmake --preset "$1" && cmake --build --preset "$1"
}
