#!/usr/bin/env bash
# Fails if clang-tidy has findings, by the checks of .clang-tidy, in the library, the simulated
# device or the agent.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh
install_packages "${BUILD_PACKAGES[@]}" clang-tidy
cmake --preset dev >/dev/null
log=build/clang-tidy.log
if ! run-clang-tidy -quiet -p build '/(miracastSigma|platform|agent)/[^/]*.*\.cpp$' >"$log" 2>&1; then
    grep -E '(error|warning): ' "$log" | sort -u >&2
    exit 1
fi
echo "clang-tidy: $(grep -c '^clang-tidy' "$log") files without findings"
