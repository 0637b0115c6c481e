#!/usr/bin/env bash
# Builds everything and runs every test.
#
#   ./test.sh                      without a sanitizer
#   ./test.sh --sanitize=address   with AddressSanitizer and UndefinedBehaviorSanitizer
#   ./test.sh --sanitize=thread    with ThreadSanitizer
#   ./test.sh --aarch64            for AArch64, under qemu-user; without the tests on a real daemon
#   ./test.sh --fuzz=SECONDS       no tests: each fuzz target for that long
#   ./test.sh --soak=MINUTES       no tests: random commands, faults and stops for that long
#
# Further arguments go to ctest (-R REGEX, --repeat until-fail:20, ...), or to the random driver (the
# seed).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/setup.sh

preset=dev
directory=build
packages=("${BUILD_PACKAGES[@]}" "${ANDROID_PACKAGES[@]}" avahi-daemon dbus iproute2)
case ${1:-} in
    --sanitize=address) preset=asan directory=build-asan && shift ;;
    --sanitize=thread) preset=tsan directory=build-tsan && shift ;;
    --aarch64)
        preset=aarch64 directory=build-aarch64 && shift
        add_architecture arm64
        packages+=("${AARCH64_PACKAGES[@]}")
        ;;
    --fuzz=*)
        . scripts/fuzz.sh
        install_packages "${BUILD_PACKAGES[@]}" clang libclang-rt-14-dev
        build_preset fuzz build-fuzz fuzz_targets
        run_fuzz_targets build-fuzz "${1#--fuzz=}"
        exit
        ;;
    --soak=*)
        install_packages "${packages[@]}"
        build_preset dev build random_driver
        exec build/bin/random_driver "${1#--soak=}" "${@:2}" >/dev/null
        ;;
    --sanitize*) echo "--sanitize is address or thread" >&2 && exit 2 ;;
esac

install_packages "${packages[@]}" chromium
build_preset "$preset" "$directory"

# This compiler's ThreadSanitizer cannot start on a kernel that randomises more address bits than it
# knows: run it without address randomisation.
run=()
if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then run=(setarch -R); fi
exec "${run[@]}" ctest --preset "$preset" -j "$(nproc)" "$@"
