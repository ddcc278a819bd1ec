# shellcheck shell=bash
# Simulated cameras, and the example counting their frames. A stream breaks off once. All of it is more than a ring
# holds and less than a queue does, so that nothing may be lost, however slow a machine is. Sourced.

work=$(mktemp -d)
camera_pid=
launcher=()
trap '[[ -z $camera_pid ]] || kill $camera_pid; rm -rf "$work"' EXIT
export LENSWIRE_PASSWORD="let me see" LENSWIRE_CAMERA_PASSWORD="let me see"

# start_cameras PROGRAM NUMBER: their addresses and ports are in cameras.
start_cameras() {
    : >"$work/cameras" # it is looked into at once
    "${launcher[@]}" "$1" --cameras "$2" --port 0 --fps 100 --synthetic 100 --frames 45 --fault reset@15 >"$work/cameras" &
    camera_pid=$!
    until (($(grep -c '^camera ' "$work/cameras") == $2)) || ! kill -0 $camera_pid; do read -rt 0.02 <> <(:); done
    # shellcheck disable=SC2034 # for whoever sources this
    mapfile -t cameras < <(sed -n 's/^camera \([0-9.]*\):\([0-9]*\) .*/\1 \2/p' "$work/cameras")
}

# counts PROGRAM PLUGIN CAMERA: an example reads the camera's clock and loses no frame.
counts() {
    local at
    read -ra at <<<"$3"
    "${launcher[@]}" "$1" "$2" "${at[@]}" admin 40 >"$work/out" 2>"$work/err" &&
        grep -q '^camera time 20' "$work/out" && grep -q '^40 frames of H264, 0 lost, 1 restarts' "$work/out" && return
    cat "$work"/{out,err}
    return 1
}
