# Sourced by test.sh.

# Runs every fuzz target of a build directory for SECONDS. Each starts with the inputs of
# fuzz/corpus and with the new inputs of earlier runs, which are kept in the build directory.
#
# Leaks are searched for before the run in these inputs and after it in the new ones; a search
# during the run would take nine tenths of the time.
run_fuzz_targets() { # DIRECTORY SECONDS
    local directory=$1 seconds=$2 corpus target found log failed=0
    mkdir -p "$directory/artefacts"
    export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
    for corpus in fuzz/corpus/*/; do
        target=$(basename "$corpus")
        found=$directory/found/$target log=$directory/artefacts/$target.log
        mkdir -p "$found"
        rm -f "$log.replay"
        # Close the descriptors that the library and the agent print to; the reports still appear.
        local run=("$directory/fuzz/$target" -close_fd_mask=3 -rss_limit_mb=2048 -timeout=20
            -artifact_prefix="$directory/artefacts/$target-" "$found" "$corpus")
        if "${run[@]}" -runs=0 >"$log" 2>&1 &&
            "${run[@]}" -max_total_time="$seconds" -detect_leaks=0 -print_final_stats=1 \
                >"$log" 2>&1 &&
            "${run[@]}" -runs=0 >"$log.replay" 2>&1; then
            printf '%-20s %9d executions, %6d per second, coverage %5d\n' "$target" \
                "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
                "$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")" \
                "$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)"
        else
            failed=1
            tail -q -n 40 "$log" "$log.replay" >&2 2>/dev/null || true
            printf '%-20s FAILED, input: %s\n' "$target" \
                "$(cat "$log" "$log.replay" 2>/dev/null |
                    sed -n 's/.*Test unit written to //p' | tail -n 1)"
        fi
    done
    return "$failed"
}
