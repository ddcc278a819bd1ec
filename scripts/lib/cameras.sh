# shellcheck shell=bash
# Simulated cameras for the length of a script. Sourced.

export LENSWIRE_CAMERA_PASSWORD=${LENSWIRE_CAMERA_PASSWORD:-let me see}
export LENSWIRE_PASSWORD=$LENSWIRE_CAMERA_PASSWORD

camera_pids=()

# start_cameras LOG OPTION...: returns when they listen; LOG holds a line for each.
start_cameras() {
    local log=$1 tries
    build/release/bin/lenswire-camera --port 0 "${@:2}" >"$log" &
    camera_pids+=($!)
    for ((tries = 0; tries < 100; ++tries)); do
        [[ -s $log ]] && return
        kill -0 $! 2>/dev/null || break
        sleep 0.1
    done
    echo "the simulated cameras did not start" >&2
    return 1
}

# Ends them; their logs then tell what they sent.
stop_cameras() {
    ((${#camera_pids[@]} > 0)) || return 0
    kill "${camera_pids[@]}" 2>/dev/null
    wait "${camera_pids[@]}" 2>/dev/null
    camera_pids=()
}
trap stop_cameras EXIT

# Where the cameras of logs listen, a HOST:PORT each.
addresses_in() {
    sed -n 's/^camera \([^ ]*\) user .*/\1/p' "$@"
}

# said LOG KIND HOST:PORT NAME: a number that a camera gave in its closing lines; KIND is camera or stream.
said() {
    awk -v kind="$2" -v camera="$3" -v name="$4" '
        $1 == kind && $2 == camera { for (i = 3; i < NF; i++) if ($i == name) value = $(i + 1) }
        END { print value + 0 }' "$1"
}
