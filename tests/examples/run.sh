#!/usr/bin/env bash
# run.sh PLUGIN CAMERA EXAMPLES INCLUDE [LAUNCHER...]: the example builds without a warning in each language that it
# is written for, linked with the plug-in and loading it, and counts the frames of a simulated camera. CC and CXX
# are the platform's compilers with their flags.
set -uo pipefail
# shellcheck source=tests/examples/cameras.sh
source "${0%/*}/cameras.sh"
plugin=$1 examples=$3 include=$4
launcher=("${@:5}")
failed=0
start_cameras "$2" 3

try() { # camera link-flags plugin-argument compiler...
    # shellcheck disable=SC2086 # the flags are words
    "${@:4}" -Wall -Wextra -pedantic -Werror -O1 -I "$include" -o "$work/record" "$examples"/*.c -x none -rdynamic \
        -pthread $2 -ldl && counts "$work/record" "$3" "$1" && return
    failed=1
    echo "${*:2}: does not count the frames of a camera"
}

read -r -a cc <<<"$CC"
read -r -a cxx <<<"$CXX"
linked="-L ${plugin%/*} -Wl,-rpath,${plugin%/*} -Wl,--no-as-needed -llenswire"
# The checking plug-in beside it has nothing to say of a host that people copy.
export LENSWIRE_CHECK_ABORT=1 LENSWIRE_CHECK_SLOW_MS=0
try "${cameras[0]}" "" "${plugin%/*}/liblenswire-check.so" "${cc[@]}" -std=c99
try "${cameras[1]}" "$linked" - "${cc[@]}" -std=c11
try "${cameras[2]}" "$linked" - "${cxx[@]}" -std=c++17 -x c++
exit $failed
