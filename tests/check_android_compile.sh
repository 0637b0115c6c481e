#!/bin/sh
# Compiles what android/Android.bp lists for an Android target, with that file's flags and a platform
# tree's, against the platform's headers alone: check_android_compile.sh REPOSITORY
# Standard headers are those of Debian's cross compiler; there are no Android ones here.
set -eu
cd "$1"
for program in clang++ aarch64-linux-gnu-g++; do
    command -v "$program" >/dev/null || { echo "skipped: there is no $program here"; exit 77; }
done
strings() { # PROPERTY: what its list holds
    sed -n "/^    $1: \[/,/^    \]/s/^        \"\(.*\)\",.*/\1/p" android/Android.bp
}
failed=0
expected=$(find miracastSigma -name '*.cpp' | LC_ALL=C sort)
listed=$(strings srcs | LC_ALL=C sort)
[ "$listed" = "$expected" ] || { echo "Android.bp lists other sources than there are"; failed=1; }

cross=/usr/aarch64-linux-gnu/include
version=$(aarch64-linux-gnu-g++ -dumpversion | cut -d. -f1)
flags="--target=aarch64-linux-android30 -std=c++17 -fPIC -fno-exceptions -fno-rtti
    $(strings cflags) $(strings cppflags) -nostdinc++ -isystem $cross/c++/$version
    -isystem $cross/c++/$version/aarch64-linux-gnu -isystem $cross -Iplatform/include"
for directory in $(strings export_include_dirs) $(strings local_include_dirs); do
    flags="$flags -I$directory"
done
for file in $listed; do
    # Only these two may need the exceptions that Android.bp asks for.
    case $file in
        */WFDTriggerTcpServer.cpp | */WFDmDns.cpp) exceptions= ;;
        *) exceptions=-fno-exceptions ;;
    esac
    clang++ $flags $exceptions -c -o /dev/null "$file" || { echo "does not compile: $file"; failed=1; }
done
exit $failed
