# shellcheck shell=bash
# Simulated cameras for the length of a script. Sourced.

export LENSWIRE_CAMERA_PASSWORD=${LENSWIRE_CAMERA_PASSWORD:-let me see}
export LENSWIRE_PASSWORD=$LENSWIRE_CAMERA_PASSWORD

camera_pids=()

# start_cameras LOG OPTION...: returns when they listen; LOG holds a line for each.
start_cameras() {
    local log=$1 tries
    : >"$log" # an older one would be taken for this one's
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

# make_heavy_clip FILE: eight seconds of real H.264 at 4 Mbit/s, 25 pictures a second, a key frame every two seconds.
make_heavy_clip() {
    ffmpeg -nostdin -loglevel error -y -f lavfi -i "testsrc2=size=1280x720:rate=25,noise=alls=20:allf=t" -t 8 \
        -c:v libx264 -preset ultrafast -b:v 4M -maxrate 4M -bufsize 4M -pix_fmt yuv420p -f h264 \
        -x264-params "keyint=50:min-keyint=50:scenecut=0:bframes=0:nal-hrd=cbr:filler=1" "$1"
}

# said LOG KIND HOST:PORT NAME: a number that a camera gave in its closing lines; KIND is camera or stream.
said() {
    awk -v kind="$2" -v camera="$3" -v name="$4" '
        $1 == kind && $2 == camera { for (i = 3; i < NF; i++) if ($i == name) value = $(i + 1) }
        END { print value + 0 }' "$1"
}
