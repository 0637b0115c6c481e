#!/usr/bin/env bash
# Measures the library beside yardsticks of its own and prints one table, in about two minutes.
#
#   ./bench.sh                                  every row
#   ./bench.sh --benchmark_filter='get_param'   the rows whose benchmarks match
#
# Further arguments go to Google Benchmark. The last row, of two network hosts, needs root, and is not
# there with arguments.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/setup.sh

# Two devices on the simulated network of the tests find each other.
two_hosts_row() {
    local medians
    printf '| two hosts: browse to address | '
    if [ "$(id -u)" -ne 0 ]; then
        echo 'not measured, which takes root | plain DNS-SD client |  |  | <= 1.05 x |  |'
        return
    fi
    medians=$(TWO_HOSTS_ROUNDS=25 build-bench/bin/two_hosts_test --gtest_filter='*IsAboutAsFast*' 2>&1 |
        sed -n 's/^peer found: library \([0-9.]*\) ms, plain DNS-SD \([0-9.]*\) ms$/\1 \2/p')
    awk -v medians="$medians" 'BEGIN {
        if (split(medians, ms, " ") != 2) { print "FAILED | plain DNS-SD client |  |  |  |  |"; exit 1 }
        ratio = ms[1] / ms[2]
        printf "%.2f ms | plain DNS-SD client | %.2f ms | %.2f | <= 1.05 x | %s |\n",
            ms[1], ms[2], ratio, ratio <= 1.05 ? "yes" : "NO"
    }'
}

install_packages "${BUILD_PACKAGES[@]}" libbenchmark-dev avahi-daemon dbus iproute2
build_preset bench build-bench sigma_bench two_hosts_test

echo "$(nproc) x $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)," \
    "Linux $(uname -r), $(g++ --version | head -n 1)"
echo
build-bench/bin/sigma_bench "$@"
if [ $# -eq 0 ]; then two_hosts_row; fi
