#!/usr/bin/env bash
# Records both streams of a simulated camera and compares the pictures of the files, decoded, with those of
# the clips that the camera played, frame by frame.
#
#   pictures.sh CODEC CAMERA-PROGRAM RECORDER-PROGRAM LIBRARY FFMPEG CLIPS
set -euo pipefail
codec=$1 camera=$2 recorder=$3 library=$4 ffmpeg=$5 clips=$6
source "$(dirname "${BASH_SOURCE[0]}")/judge.sh"
export LENSWIRE_CAMERA_PASSWORD='a secret' LENSWIRE_PASSWORD='a secret'
seconds=6 # longer than a clip

work=$(mktemp -d)
"$camera" --port 0 --codecs "$codec" --clips "$clips" >"$work/camera.log" &
camera_pid=$!
trap 'kill $camera_pid 2>/dev/null || true; wait $camera_pid 2>/dev/null || true; rm -rf "$work"' EXIT
until address=$(sed -n 's/^camera \([^ ]*\) user .*/\1/p' "$work/camera.log") && [[ -n $address ]]; do
    kill -0 $camera_pid || { echo "the camera did not start" && exit 1; }
    sleep 0.05
done

"$recorder" --library "$library" record "admin@$address/0/0" "admin@$address/0/1" \
    --seconds "$seconds" --out "$work" >"$work/recorder.log" 2>&1 || {
    cat "$work/recorder.log"
    exit 1
}

shopt -s nullglob
for stream in 0 1; do
    kinds=(main sub)
    clip=("$clips/$codec-${kinds[stream]}".*)
    folders=("$work"/*[0-9] "$work"/*-sub)
    files=("${folders[stream]}"/*/*.mkv)
    ((${#clip[@]} == 1 && ${#files[@]} == 1)) || {
        echo "stream $stream: ${#clip[@]} clips and ${#files[@]} files where one of each should be"
        ls -l "$work" && cat "$work/recorder.log"
        exit 1
    }
    echo "${files[0]##*/} against ${clip[0]##*/}"
    same_pictures "${clip[0]}" "${files[0]}" || { cat "$work/recorder.log" && exit 1; }
done
