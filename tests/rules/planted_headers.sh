#!/usr/bin/env bash
# Plants faults in small headers; the check must name each.
set -uo pipefail
here=$(dirname "$0")
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
failed=0

expect() { # words text-of-the-header [text-of-lenswire.h]
    local output
    mkdir -p "$copy/lenswire"
    printf '%b' "$2" >"$copy/lenswire/planted.h"
    printf '%b' "${3-#include \"lenswire/planted.h\"\n}" >"$copy/lenswire/lenswire.h"
    output=$("$here/headers.sh" "$copy" 2>&1) && output+="nothing"
    grep -qF "$1" <<<"$output" || { printf '%b: expected "%s", the check says: %s\n' "$2" "$1" "$output" && failed=1; }
}

expect nothing '#pragma once\n#include <stdint.h>\ntypedef uint8_t planted;\n'
expect "planted.h: does not compile alone as c11" '#pragma once\nuint8_t planted(void);\n'
expect "planted.h: does not compile alone as c++20" '#pragma once\nint planted(int class);\n'
expect "planted.h: does not compile alone as c11" '#pragma once\nint planted(int& reference);\n'
expect "planted.h: does not compile alone as c11" 'struct planted { int once; };\n'
expect "planted.h: does not compile alone as c11" '#pragma once\nstruct planted { int once; };;\n'
expect "planted.h: not in lenswire.h" '#pragma once\nint planted(void);\n' '#pragma once\nint other(void);\n'
exit $failed
