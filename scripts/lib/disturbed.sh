# What scripts/crash and scripts/faults share; sourced, behind common.sh.
# shellcheck shell=bash

# shellcheck disable=SC2154  # common.sh sets it
export TWIGCTL=$project_root/build/release/twigctl

# build_disturbed: the program as it is installed, and the tests that disturb it.
build_disturbed() {
    cmake --preset release && cmake --build --preset release --target twigctl &&
        cmake --preset dev && cmake --build --preset dev --target disturbed_test cli_test
}

# run_disturbed FILTER LOG: runs these tests in full, on all processors. The log holds what they
# print, table rows among it. Fails when a test fails; ends the script when none is run.
run_disturbed() {
    local filter=$1 log=$2 shards shard status=0
    shards=$(nproc)
    local jobs=()
    for ((shard = 0; shard < shards; ++shard)); do
        TWIGCTL_FULL=1 GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard \
            build/dev/tests/disturbed_test --gtest_filter="$filter" >"$log.$shard" 2>&1 &
        jobs+=("$!")
    done
    for shard in "${jobs[@]}"; do
        wait "$shard" || status=1
    done
    : >"$log"
    for ((shard = 0; shard < shards; ++shard)); do
        cat "$log.$shard" >>"$log"
        rm "$log.$shard"
    done
    grep -q '^\[ RUN ' "$log" || die "no test was run; is one called $filter? See $log."
    return "$status"
}

# rows_of LOG: the table rows that the tests have printed, which may be none.
rows_of() {
    grep '^| ' "$1" || true
}

# show_failures LOG: what was expected and found, without the test runner's own lines.
show_failures() {
    grep -vE '^(\||\[|Note: |Value of: |  Actual: |Expected: )|: Failure$|^$' "$1" || true
}
