#!/usr/bin/env bash
# same_objects.sh PLAIN CHECKING: the checking plug-in is the plain one and something beside it: each function
# and each object of the plain one stands in it too, of the same size, and nothing of the check in the plain one.
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

parts() { # library
    "$READELF" -sW "$1" | awk '/\.symtab/ { on = 1 } on && ($4 == "FUNC" || $4 == "OBJECT") && $7 != "UND" {
        print $4, $3, $8 }' | sort
}
parts "$1" >"$work/plain"
parts "$2" >"$work/checking"
failed=0
(($(wc -l <"$work/plain") > 100)) || { echo "$1: no symbols" && failed=1; }
while read -r part; do echo "$part: not in $2" && failed=1; done < <(comm -23 "$work/plain" "$work/checking")
! grep -qE 'lenswire5check| checked_' "$work/plain" || { echo "$1: has parts of the check" && failed=1; }
exit $failed
