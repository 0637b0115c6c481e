#!/bin/sh
# Compares what a library exports with the list in its version script: check_exports.sh LIBRARY MAP
set -eu
expected=$(mktemp)
actual=$(mktemp)
trap 'rm -f "$expected" "$actual"' EXIT
sed -n '/^global:/,/^local:/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);.*/\1/p' "$2" | sort >"$expected"
nm -D --defined-only "$1" | awk '{print $3}' | sort >"$actual"
[ -s "$expected" ] || { echo "no list in $2"; exit 1; }
diff -u "$expected" "$actual"
