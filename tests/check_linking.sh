#!/bin/sh
# What a device's loader demands of the library: check_linking.sh LIBRARY SONAME
set -eu
library=$1
failed=0
say() { echo "$1" && failed=1; }
dynamic=$(readelf -dW "$library")
segments=$(readelf -lW "$library")
undefined=$(readelf -W --dyn-syms "$library" | awk '$7 == "UND" && $5 != "LOCAL" {print $8}')

echo "$dynamic" | grep -qF "Library soname: [$2]" || say "its SONAME is not $2"
echo "$dynamic" | grep -q 'TEXTREL' && say "it has text relocations"
echo "$dynamic" | grep -Eq 'FLAGS.*(BIND_NOW|NOW)' || say "it is not linked with -z now"
echo "$segments" | grep -q 'GNU_RELRO' || say "it is not linked with -z relro"
echo "$segments" | grep 'GNU_STACK' | grep -q 'RWE' && say "its stack is executable"
echo "$segments" | grep -q 'GNU_STACK' || say "it does not say that its stack is not executable"

# Where its symbols come from: the platform, the DNS-SD client, the system. The link itself fails when
# none of these has one (--no-undefined).
needed=$(echo "$dynamic" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p')
for other in $(echo "$needed" | grep -Ev \
    '^(libhostplatform|libdns_sd|libresolv|libstdc\+\+|libgcc_s|libm|libc|ld-linux-[a-z0-9_-]+)\.so'); do
    say "it needs $other"
done
# And of the platform only what a device has, nothing of the simulated one's own.
for symbol in $(echo "$undefined" | grep 'hostplatform'); do say "it needs $symbol"; done
exit $failed
