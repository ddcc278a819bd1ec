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
while read -r verdict list; do
    same_pictures "$clip" "$list" >/dev/null && said=same || said=other
    [[ $said == "$verdict" ]] || { echo "$said, not $verdict: $list" && exit 1; }
done <<END
same a b c d e f a
same d e f a b c d e f a b c d
other a b c d e f
other a b c e f a b c
other a b c c d e f a b
other a b x d e f a b c
other a c b d e f a b c
other x a b c d e f a b c
other
END
