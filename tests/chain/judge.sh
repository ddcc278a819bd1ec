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
    awk '
        NR == FNR { clip[FNR - 1] = $1; if (!($1 in place)) place[$1] = FNR - 1; length_of_clip = FNR; next }
        FNR == 1 {
            if (!($1 in place)) { print "the first recorded picture is none of the clip"; bad = 1; exit }
            start = place[$1]
        }
        $1 != clip[(start + FNR - 1) % length_of_clip] {
            print "recorded picture " FNR " is not picture " (start + FNR - 1) % length_of_clip + 1 " of the clip"
            bad = 1
            exit
        }
        { recorded = FNR }
        END {
            if (!bad && recorded < length_of_clip + 1) {
                print "only " recorded + 0 " pictures were recorded of a clip of " length_of_clip
                bad = 1
            }
            exit bad
        }' <(picture_hashes "$1") <(picture_hashes "$2")
}
