#!/bin/sh
# Compares what a library exports with the list of its binary interface: check_exports.sh LIBRARY LIST
set -eu
export LC_ALL=C
listed=$(mktemp)
exported=$(mktemp)
trap 'rm -f "$listed" "$exported"' EXIT
case $(readelf -h "$1" | sed -n 's/^ *Machine: *//p') in
    AArch64) pick='s/[0-9]*|//' ;;
    *) pick='s/|[0-9]*//' ;;
esac
grep -v '^#' "$2" | sed "$pick" | sort >"$listed"
readelf -W --dyn-syms "$1" |
    awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" {
        print $8, tolower($4), $4 == "OBJECT" ? $3 : "-" }' | sort >"$exported"
[ -s "$listed" ] || { echo "no list in $2"; exit 1; }
diff -u --label listed --label exported "$listed" "$exported"
