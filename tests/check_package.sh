#!/bin/sh
# Installs a build and uses it from another project, by CMake's package and by pkg-config's:
# check_package.sh BUILD_DIRECTORY CONSUMER_DIRECTORY C_COMPILER [EMULATOR]
set -eu
build=$1 consumer=$2 compiler=$3 emulator=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expected='reset 0 version 2 peer 192 bytes'
try() { # NAME PROGRAM
    output=$(ANDROID_LOG_TAGS='*:S' $emulator "$2" | tail -n 1)
    [ "$output" = "$expected" ] || { echo "$1: expected \"$expected\", got \"$output\"" && exit 1; }
}

cmake --install "$build" --prefix "$work/there" >"$work/log" || { cat "$work/log" && exit 1; }
# It must not depend on the place where it was installed first.
mv "$work/there" "$work/moved"

cmake -S "$consumer" -B "$work/consumer" -DCMAKE_C_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$work/moved" >"$work/log" &&
    cmake --build "$work/consumer" >>"$work/log" || { cat "$work/log" && exit 1; }
try "CMake package" "$work/consumer/consumer"

directory=$(dirname "$(find "$work/moved" -name miracastSigma.pc)")
flags=$(PKG_CONFIG_PATH=$directory pkg-config --define-prefix --cflags --libs miracastSigma)
library=$(dirname "$directory")
$compiler -std=c11 "$consumer/consumer.c" $flags -Wl,-rpath,"$library" -o "$work/by-pkg-config"
try "pkg-config package" "$work/by-pkg-config"
