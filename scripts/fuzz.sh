# Sourced by test.sh.

# Runs every fuzz target of a build directory for SECONDS, after the inputs of fuzz/corpus. Further
# inputs that it finds worth keeping go to the build directory, and are begun with the next time.
run_fuzz_targets() { # DIRECTORY SECONDS
    local directory=$1 seconds=$2 corpus target found log failed=0
    mkdir -p "$directory/found" "$directory/artefacts"
    export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
    for corpus in fuzz/corpus/*/; do
        target=$(basename "$corpus")
        found=$directory/found/$target log=$directory/artefacts/$target.log
        mkdir -p "$found"
        # What the library and the agent print goes nowhere; reports still come through.
        local options=(-close_fd_mask=3 -rss_limit_mb=2048 -timeout=20
            -artifact_prefix="$directory/artefacts/$target-")
        if "$directory/fuzz/$target" "${options[@]}" -runs=0 "$corpus" >"$log" 2>&1 &&
            "$directory/fuzz/$target" "${options[@]}" -max_total_time="$seconds" \
                -print_final_stats=1 "$found" "$corpus" >"$log" 2>&1; then
            printf '%-20s %9d executions, %6d per second, coverage %5d\n' "$target" \
                "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
                "$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")" \
                "$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)"
        else
            failed=1
            cat "$log" >&2
            printf '%-20s FAILED, input in %s\n' "$target" \
                "$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)"
        fi
    done
    return "$failed"
}
