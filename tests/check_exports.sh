#!/bin/sh
# Compares what a library exports with the list of its binary interface:
#   check_exports.sh LIBRARY LIST
# or writes the list:
#   check_exports.sh --write LIBRARY LIST
set -eu
export LC_ALL=C
write=false
if [ "$1" = --write ]; then write=true && shift; fi
library=$1
list=$2
listed=$(mktemp)
exported=$(mktemp)
trap 'rm -f "$listed" "$exported"' EXIT
case $(readelf -h "$library" | sed -n 's/^ *Machine: *//p') in
    AArch64) pick='s/[0-9]*|//' ;;
    *) pick='s/|[0-9]*//' ;;
esac
readelf -W --dyn-syms "$library" |
    awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" {
        print $8, tolower($4), $4 == "OBJECT" ? $3 : "-" }' | sort >"$exported"
[ -s "$exported" ] || { echo "$library exports nothing"; exit 1; }
if $write; then
    # The comments stay, and so do the sizes that two machines differ in.
    awk 'NR == FNR { if (/^#/) print; else if (/\|/) both[$1] = $0; next }
        { print $1 in both ? both[$1] : $0 }' "$list" "$exported" >"$listed"
    cat "$listed" >"$list"
else
    grep -v '^#' "$list" | sed "$pick" | sort >"$listed"
    diff -u --label listed --label exported "$listed" "$exported"
fi
