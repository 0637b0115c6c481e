#!/usr/bin/env bash
# Measures the library beside yardsticks, in half a minute. Arguments go to Google Benchmark.
#
#   ./bench.sh                                  every row
#   ./bench.sh --benchmark_filter='trigger'     the rows that match
#
# "ours" and "yardstick" are lower quartiles, in seconds for one thing of many. "aim" is what "ratio" should not
# be above. The last table, of two network hosts, needs root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/setup.sh
export ANDROID_LOG_TAGS='*:S'  # of what is logged before a measurement
options=(--benchmark_min_time=3 --benchmark_counters_tabular=true)

# On a network of two hosts: a sink registers itself, and the source looks for it.
if [ "${1:-}" = --inside ]; then
    preset=sta_preset_testparameters,mdns_disc,enable,mdns_role,responder,wfddevtype,p-sink
    { echo "$preset" && sleep 600; } | "$ON_HOST" sink build-bench/bin/capi-agent >/dev/null 2>&1 &
    "$ON_HOST" source build-bench/bin/two_hosts_bench "${options[@]}" "${@:2}"
    exit
fi

install_packages "${BUILD_PACKAGES[@]}" libbenchmark-dev
build_preset bench build-bench capi-agent sigma_bench two_hosts_bench
build-bench/bin/sigma_bench "${options[@]}" "$@"
scripts/network.sh ./bench.sh --inside "$@" || [ $? -eq 77 ]
