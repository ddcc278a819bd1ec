# shellcheck shell=bash disable=SC2154 # the demo has set them
# What a recorder is for: four cameras recorded, and each recording held against what its camera sent.
# Sourced by the demo.

# ffprobe's word on a file: what its tracks decode to.
probe() { # file track field
    ffprobe -v error -threads 1 -select_streams "$2" -count_frames -show_entries "stream=$3" -of csv=p=0 "$1"
}

# How many pictures the camera sent from the first recorded one to the last, by their time stamps and the
# camera's own interval between two: the recorder's count plays no part in it.
pictures_between() { # file interval-in-seconds
    ffprobe -v error -select_streams v:0 -show_entries packet=pts_time -of csv=p=0 "$1" | sort -n |
        awk -F, -v step="$2" 'NR == 1 { first = $1 } { last = $1 } END { printf "%d", (last - first) / step + 1.5 }'
}

# One recorded stream against what its camera sent; prints its line of the table.
judge() { # log camera file frames audio-frames duration fps restarts lost skipped motions alarms
    local log=$1 camera=$2 file=$3 codec sound size decoded sent sent_audio interval between pushes
    sent=$(said "$log" stream "$camera" video)
    sent_audio=$(said "$log" stream "$camera" audio)
    pushes=$(said "$log" camera "$camera" motion-pushes)
    interval=$(awk -v n="$sent" -v first="$(said "$log" stream "$camera" first-ms)" \
        -v last="$(said "$log" stream "$camera" last-ms)" 'BEGIN { print (n > 1 ? (last - first) / (n - 1) / 1000 : 1) }')
    codec=$(probe "$file" v:0 codec_name)
    sound=$(probe "$file" a:0 codec_name)
    size=$(probe "$file" v:0 width,height | tr , x)
    decoded=$(probe "$file" v:0 nb_read_frames 2>"$out/ffprobe.log")
    between=$(pictures_between "$file" "$interval")
    printf '%-16s %-16s %-8s %6d %6d %5d %8.2f %5.1f %7d %7d  %s\n' "$camera" "$codec${sound:+ + $sound}" \
        "$size" "$decoded" "$sent" $((between - decoded)) "$6" "$7" "${11}" "${12}" "$file"

    [[ ! -s $out/ffprobe.log ]] || problem "$file: does not decode cleanly: $(head -n 1 "$out/ffprobe.log")"
    ((decoded > 0 && decoded == $4)) || problem "$file: $decoded pictures decode, the recorder says $4"
    ((between == decoded)) || problem "$file: the camera sent $between pictures in that time, $decoded are there"
    # What the camera sent in the moment in which the recording ended is no loss.
    ((sent >= decoded && sent - decoded <= 25)) || problem "$camera: sent $sent pictures, $decoded are there"
    ((sent_audio >= $5 && sent_audio - $5 <= 25)) || problem "$camera: sent $sent_audio pieces of sound, $5 are there"
    [[ $sent_audio == 0 || -n $sound ]] || problem "$file: has no sound"
    (($8 == 0)) || problem "$camera: $8 restarts"
    (($9 == 0 && ${10} == 0)) || problem "$camera: the recorder lost $9 and skipped ${10}"
    # Every other push ends a motion.
    ((pushes - 2 * ${11} <= 1 && pushes - 2 * ${11} >= -1)) || problem "$camera: $pushes pushes made ${11} motions"
}

recording_page() {
    local address addresses=() names=() log fields silent code
    echo
    echo "Four simulated cameras: H.264, H.265, JPEG, and H.264 with sound that pushes motion. A fifth falls silent for a while."
    start_cameras "$out/cameras.log" --cameras 3 --codecs h264,h265,jpeg || return
    start_cameras "$out/moving.log" --address 127.0.0.4 --codecs h264+audio --motion 2 || return
    mapfile -t addresses < <(addresses_in "$out"/{cameras,moving}.log)
    ((${#addresses[@]} == 4)) || problem "${#addresses[@]} of 4 cameras started"
    start_cameras "$out/silent.log" --address 127.0.0.5 --fault stall@26 || return
    silent=$(addresses_in "$out/silent.log")
    names=("door=admin@${addresses[0]}" "yard=admin@${addresses[1]}" "hall=admin@${addresses[2]}"
        "gate=admin@${addresses[3]}" "shed=admin@$silent")
    echo "Recording for $seconds seconds: lenswire record ${names[*]} --seconds $seconds"
    echo
    lenswire record "${names[@]}" --seconds "$seconds" --out "$out" --summary "$out/summary.json"
    code=$?
    ((code == 8)) || problem "lenswire record ended with exit code $code, not with 8 for the gap"
    stop_cameras
    lenswire --json footage --out "$out" >"$out/footage.json"

    echo
    echo "What was recorded, decoded by ffmpeg and compared with what the cameras say they sent:"
    printf '%-16s %-16s %-8s %6s %6s %5s %8s %5s %7s %7s  %s\n' \
        camera codec size frames sent lost seconds fps motions alarms file
    for address in "${addresses[@]}"; do
        log=$out/cameras.log
        grep -q "^camera $address " "$out/moving.log" && log=$out/moving.log
        mapfile -t fields < <(jq -r --arg camera "$address" --arg out "$out" --slurpfile ledger "$out/footage.json" '
            .streams[] | select(.camera == $camera) |
            ($ledger[0].streams[] as $known | select($known.name == .name) | $known.segments) as $files |
            if ($files | length) == 1 and $files[0].state == "finished" then
                $out + "/" + $files[0].path, $files[0].frames, .audio_frames, .footage_seconds,
                $files[0].frames / .footage_seconds, .restarts, .lost, .skipped, .motions, .alarms
            else empty end' "$out/summary.json")
        ((${#fields[@]} == 10)) || { problem "$address: not one finished file" && continue; }
        judge "$log" "$address" "${fields[@]}"
    done
    grep -qE '^camera .* motion-pushes [1-9]' "$out/moving.log" || problem "no camera pushed motion"

    show footage shed --out "$out"
    jq -e '.streams[] | select(.name == "shed") | any(.spans[]; .gap.side == "camera" and .seconds > 1)' \
        "$out/footage.json" >/dev/null || problem "shed was silent, and the ledger has no such gap"
    jq -e 'all(.streams[]; .watched_seconds - .footage_seconds - .gap_seconds | . < 0.2 and . > -0.2)' \
        "$out/footage.json" >/dev/null || problem "footage and gaps do not add up"
}

verify_page() {
    show verify "$out" || problem "the files are not as the ledger says"
}
