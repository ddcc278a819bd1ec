# shellcheck shell=bash
# Compares decoded pictures. Sourced.
: "${ffmpeg:?is the program that decodes}"

# The hash of every decoded picture of a file, one a line, none repeated or left out to fit a frame rate.
picture_hashes() {
    "$ffmpeg" -nostdin -v error -threads 1 -i "$1" -map 0:v:0 -fps_mode passthrough -f framemd5 - |
        sed -n 's/^0,.*, *\([0-9a-f]\{32\}\)$/\1/p'
}

# same_pictures CLIP RECORDING: whether the recording shows the clip, over and over, from any of its
# pictures on, and all of it at least once.
same_pictures() {
    local clip recorded looped=" "
    clip="$(picture_hashes "$1" | xargs) " recorded=" $(picture_hashes "$2" | xargs) "
    while ((${#looped} < ${#recorded} + ${#clip})); do looped+=$clip; done
    ((${#recorded} > ${#clip} + 1)) && [[ $looped == *"$recorded"* ]] && return
    echo "clip: $clip"
    echo "recording: $recorded"
    return 1
}
