#!/usr/bin/env bash
# Measures the library beside yardsticks of its own and prints one table, in about a minute.
#
#   ./bench.sh                                  every row
#   ./bench.sh --benchmark_filter='get_param'   the rows whose benchmarks match
#
# Further arguments go to Google Benchmark.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/setup.sh

install_packages "${BUILD_PACKAGES[@]}" libbenchmark-dev
build_preset release build-release sigma_bench

echo "$(nproc) x $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)," \
    "Linux $(uname -r), $(g++ --version | head -n 1)"
echo
exec build-release/bin/sigma_bench "$@"
