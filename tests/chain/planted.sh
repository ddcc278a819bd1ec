#!/usr/bin/env bash
# The judge accepts a clip that loops and refuses one with a picture lost, doubled, changed or out of place.
#
#   planted.sh FFMPEG CLIPS
set -euo pipefail
ffmpeg=$1 clips=$2
source "$(dirname "${BASH_SOURCE[0]}")/judge.sh"

# The judge sees lists of hashes instead of files here, but for one look at a real clip.
real=$(picture_hashes "$clips/h264-sub.h264" | sort -u | wc -l)
((real == 100)) || { echo "a clip of 100 different pictures has $real hashes" && exit 1; }

picture_hashes() {
    tr ' ' '\n' <<<"$1"
}
clip="a b c d e f"
accepts() {
    same_pictures "$clip" "$1" >/dev/null || { echo "refused: $1" && exit 1; }
}
refuses() {
    ! same_pictures "$clip" "$1" >/dev/null || { echo "accepted: $1" && exit 1; }
}
accepts "a b c d e f a"
accepts "d e f a b c d e f a b c d"
refuses "a b c d e f"           # the loop's seam was not seen
refuses "a b c e f a b c"       # lost
refuses "a b c c d e f a b"     # doubled
refuses "a b x d e f a b c"     # changed
refuses "a c b d e f a b c"     # out of place
refuses "x a b c d e f a b c"   # foreign
refuses ""
