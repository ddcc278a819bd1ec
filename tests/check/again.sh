#!/usr/bin/env bash
# again.sh LIBRARY FILTER PROGRAM [LAUNCHER...]: runs cases of another test once more, each in a process of its
# own, with this library under the plain one's name. A report about the fake host ends a process.
set -uo pipefail
library=$1 filter=$2 program=$3
launch=("${@:4}" "$program")
export LENSWIRE_CHECK_ABORT=1 LENSWIRE_CHECK_SLOW_MS=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ln -s "$library" "$work/liblenswire.so"
cases=0
for case in $("${launch[@]}" --gtest_list_tests --gtest_filter="$filter" |
    awk '/^[^ ]/ { suite = $1; next } { print suite $1 }'); do
    LD_LIBRARY_PATH=$work "${launch[@]}" --gtest_filter="$case" >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }
    cases=$((cases + 1))
done
echo "$cases cases"
((cases > 0))
