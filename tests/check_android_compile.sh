#!/bin/sh
# Compiles the library's sources with the flags of Android.bp and those of a device's tree, against
# Debian's copies of the platform's own headers: check_android_compile.sh REPOSITORY MACHINE
# MACHINE: x86_64 or aarch64. The C and C++ libraries are Debian's. Of platform/include, only the headers
# in `standins` may be used: Debian has no platform headers of these names.
set -eu
standins='(dns_sd|(gui|ui)/[[:alnum:]]+|media/AudioSystem|system/audio|sys/system_properties)\.h'
cd "$1"
target=$2-linux-gnu
platform=/usr/include/android
temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
for header in utils/RefBase.h android/log.h cutils/properties.h binder/IBinder.h nativehelper/jni.h; do
    [ -f $platform/$header ] || { echo "skipped: there is no $platform/$header here"; exit 77; }
done
echo '#include <string>' | clang++ --target="$target" -fsyntax-only -xc++ - ||
    { echo "skipped: there is no clang++ here, or no C++ library for $target"; exit 77; }

strings() { # PROPERTY: what its list holds
    sed -n "/^    $1: \[/,/^    \]/s/^        \"\(.*\)\",.*/\1/p" Android.bp
}
flags="--target=$target -D__ANDROID__ -D__ANDROID_API__=30 -std=c++17 -fPIC -fno-exceptions -fno-rtti
    $(strings cflags) -fsyntax-only"
for directory in $(strings export_include_dirs) $(strings local_include_dirs); do
    library_flags="${library_flags:-} -I$directory"
done
platform_flags="-isystem $platform -isystem $platform/nativehelper -isystem platform/include"
failed=0
compile() { # FILE FLAG...
    clang++ $flags "$@" || { echo "does not compile: $*"; failed=1; }
}
for file in $(find miracastSigma -name '*.cpp'); do
    compile "$file" $library_flags $platform_flags -MD -MF "$temporary/$(basename "$file").d"
done
if cat "$temporary"/*.d | grep -o 'platform/include/[^ ]*' | sort -u |
    grep -vE "^platform/include/$standins\$"; then
    echo "these stand-ins were used in place of the platform's own headers"
    failed=1
fi
# The stand-ins and the platform's own headers promise the same.
compile tests/android_probe.cpp -isystem platform/include
compile tests/android_probe.cpp $platform_flags
exit $failed
