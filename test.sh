#!/usr/bin/env bash
# Builds everything and runs every test.
#
#   ./test.sh                      as it is meant to run
#   ./test.sh --sanitize=address   with AddressSanitizer and UndefinedBehaviorSanitizer
#   ./test.sh --sanitize=thread    with ThreadSanitizer
#   ./test.sh --aarch64            for AArch64, under qemu-user; without the tests on a real daemon
#   ./test.sh --fuzz=SECONDS       no tests: each fuzz target for that long
#   ./test.sh --soak=MINUTES       no tests: mixed commands for that long, with faults at random
#
# Further arguments go to ctest (-R REGEX, --repeat until-fail:20, ...), or to the soak test (--seed
# NUMBER).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/setup.sh

preset=dev
directory=build
packages=("${BUILD_PACKAGES[@]}" avahi-daemon dbus iproute2 pkg-config)
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
        build_preset dev build soak_test
        exec build/bin/soak_test --minutes "${1#--soak=}" "${@:2}"
        ;;
    --sanitize*) echo "--sanitize is address or thread" >&2 && exit 2 ;;
esac

install_packages "${packages[@]}"
build_preset "$preset" "$directory"

export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
# Without the second that each program would wait at its end for threads that still run.
export TSAN_OPTIONS=second_deadlock_stack=1:atexit_sleep_ms=20:suppressions=$PWD/tests/tsan.supp
# ThreadSanitizer of this compiler cannot place its memory on a kernel that randomises more address
# bits than it knows.
run=()
if [ "$preset" = tsan ] && setarch -R true 2>/dev/null; then run=(setarch -R); fi
exec "${run[@]}" ctest --test-dir "$directory" --output-on-failure -j "$(nproc)" "$@"
