#!/bin/sh
# What a device's loader demands of the library: check_linking.sh LIBRARY SONAME
set -eu
dynamic=$(readelf -dW "$1")
segments=$(readelf -lW "$1")
failed=0
say() { echo "$1" && failed=1; }
holds() { echo "$1" | grep -Eq "$2"; } # TEXT PATTERN

holds "$dynamic" "Library soname: \[$2\]" || say "its SONAME is not $2"
! holds "$dynamic" TEXTREL || say "it has text relocations"
holds "$dynamic" 'FLAGS.*NOW' || say "it is not linked with -z now"
holds "$dynamic" NODELETE || say "it is not linked with -z nodelete"
holds "$segments" GNU_RELRO || say "it is not linked with -z relro"
holds "$segments" 'GNU_STACK.* RW ' || say "its stack is executable, or it does not say that it is not"

# Where its symbols come from: the platform, the DNS-SD client, the system. The link itself fails when
# none of these has one (--no-undefined).
for other in $(echo "$dynamic" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' | grep -Ev \
    '^(libhostplatform|libdns_sd|libresolv|libstdc\+\+|libgcc_s|libm|libc|ld-linux-[a-z0-9_-]+)\.so'); do
    say "it needs $other"
done
# And of the platform only what a device has, nothing of the simulated one's own.
! readelf -W --dyn-syms "$1" | grep 'UND.*hostplatform' || say "it needs these"
exit $failed
