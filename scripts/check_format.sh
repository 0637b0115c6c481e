#!/usr/bin/env bash
# Fails, and prints the difference, if a source file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/setup.sh
install_packages clang-format
git ls-files '*.c' '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
echo "format: $(git ls-files '*.c' '*.cpp' '*.h' | wc -l) files are formatted"
