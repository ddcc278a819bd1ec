#!/usr/bin/env bash
# headers.sh INCLUDE_DIR: every public header compiles alone, and twice, as C99, C11, C++17 and C++20, with
# no warning; lenswire.h brings them all. CC and CXX are the compilers with their flags.
set -uo pipefail
include=$1
failed=0

compile() { # header language standard compiler...
    # The typedef: a header of macros alone would leave an empty translation unit, which C does not have.
    printf '#include "%s"\n#include "%s"\ntypedef int lenswire_not_empty;\n' "$1" "$1" |
        "${@:4}" -x "$2" -std="$3" -I "$include" -Wall -Wextra -Werror -pedantic -fsyntax-only - ||
        { echo "$1: does not compile alone as $3" && failed=1; }
}

read -r -a cc <<<"$CC"
read -r -a cxx <<<"$CXX"
mapfile -t headers < <(cd "$include" && echo lenswire/*.h | tr ' ' '\n')
for header in "${headers[@]}"; do
    for standard in c99 c11; do compile "$header" c "$standard" "${cc[@]}"; done
    for standard in c++17 c++20; do compile "$header" c++ "$standard" "${cxx[@]}"; done
done

brought=$(echo '#include "lenswire/lenswire.h"' | "${cc[@]}" -std=c11 -I "$include" -MM -x c - | tr ' ' '\n')
for header in "${headers[@]}"; do
    grep -qxF "$include/$header" <<<"$brought" || { echo "$header: not in lenswire.h" && failed=1; }
done
exit $failed
