#!/usr/bin/env bash
# run.sh PLUGIN CAMERA EXAMPLES INCLUDE [LAUNCHER...]: the example builds without a warning in each language that it
# is written for, linked with the plug-in and loading it, and counts the frames of a simulated camera, whose
# stream breaks off on the way. CC and CXX are the platform's compilers with their flags.
set -uo pipefail
plugin=$1 camera=$2 examples=$3 include=$4
launcher=("${@:5}")
work=$(mktemp -d)
failed=0
camera_pid=
trap '[[ -z $camera_pid ]] || kill $camera_pid; rm -rf "$work"' EXIT
export LENSWIRE_PASSWORD="let me see" LENSWIRE_CAMERA_PASSWORD="let me see"

"${launcher[@]}" "$camera" --cameras 3 --port 0 --fps 100 --fault reset@15 >"$work/cameras" &
camera_pid=$!
until (($(grep -c '^camera ' "$work/cameras") == 3)) || ! kill -0 $camera_pid; do read -rt 0.02 <> <(:); done
mapfile -t cameras < <(sed -n 's/^camera \([0-9.]*\):\([0-9]*\) .*/\1 \2/p' "$work/cameras")

try() { # camera link-flags plugin-argument compiler...
    local program=$work/record at
    read -ra at <<<"$1"
    # shellcheck disable=SC2086 # the flags are words
    "${@:4}" -Wall -Wextra -pedantic -Werror -O1 -I "$include" -o "$program" "$examples"/*.c -x none -rdynamic \
        -pthread $2 -ldl &&
        "${launcher[@]}" "$program" "$3" "${at[@]}" admin 40 >"$work/out" 2>"$work/err" &&
        grep -q '^camera time 20' "$work/out" && grep -q '^40 frames of H264, 0 lost' "$work/out" && return
    failed=1
    echo "${*:2}: does not count the frames of a camera"
    cat "$work"/{out,err}
}

read -r -a cc <<<"$CC"
read -r -a cxx <<<"$CXX"
linked="-L ${plugin%/*} -Wl,-rpath,${plugin%/*} -Wl,--no-as-needed -llenswire"
try "${cameras[0]}" "" "$plugin" "${cc[@]}" -std=c99
try "${cameras[1]}" "$linked" - "${cc[@]}" -std=c11
try "${cameras[2]}" "$linked" - "${cxx[@]}" -std=c++17 -x c++
exit $failed
