#!/usr/bin/env bash
# recorder.sh BIN LIBRARY PRELOAD --all | --sample | CALLER/FUNCTION:NUMBER:ERROR: records simulated cameras once for
# each call of the recorder that can fail, with that one failing. The recorder must end in time with an exit code of
# its own and say why; what it recorded must be accounted for, by itself or after the next start, which must work.
set -uo pipefail
bin=$1 library=$2 preload=$3
slots=12
longest_s=60
each=60 # of a call that loops, these many from the first on, and as many more spread over the rest

record() { # FOLDER SLOT SECONDS OPTION...
    mapfile -t at < <(sed -n "s/^camera \([^ ]*\) user .*/\1/p" "$work/cameras.log" | sed -n "$((2 * $2 + 1)),$((2 * $2 + 2))p")
    timeout -s KILL "$longest_s" "${@:4}" "$bin/lenswire" --library "$library" --json record "a=admin@${at[0]}/0/1" \
        "b=admin@${at[1]}/0/1" --out "$1" --segment 1 --keep 700K --keep-free 1 --seconds "$3" --summary "$1/summary"
}

# Empty when all is as it should be.
trouble() { # FOLDER SLOT CASE
    local out=$1 code end seconds
    cp -r "$work/left" "$out"
    end=$(date -u -d '+1 second' +%FT%T)
    record "$out" "$2" 1.3 env LD_PRELOAD="$preload" LENSWIRE_FAIL="$3" LENSWIRE_FAIL_COUNTS="$out/counts" >"$out/out" 2>"$out/err"
    code=$?
    ((code <= 8)) || { echo "ends with $code: $(tail -n 1 "$out/err")" && return; }
    case $code in
        0 | 8)
            verify "$out" || { echo "exit code $code, and $(verify "$out" --say)" && return; }
            "$bin/lenswire" --json footage --out "$out" >"$out/footage"
            # The last end of each stream is behind what this run has to have seen.
            awk -F'"' -v least="$end" 'function check() { if (last != "" && last < least) exit bad = 1 }
                $2 == "name" { check(); last = "0" } $2 == "to" && $4 > last { last = $4 }
                END { if (bad || last < least) exit 1 }' "$out/footage" || { echo "exit code $code, and nothing is known up to the end" && return; }
            ! grep '"cause"' "$out/summary" | grep -qv '"not running"' || grep -q '"event":"note"' "$out/out" || echo "a gap without a word"
            ;;
        *) (($(wc -l <"$out/err") >= 1)) || echo "exit code $code, and says: $(cat "$out/err")" ;;
    esac
    for seconds in 0.3 5; do # a busy machine may take longer
        record "$out" "$2" $seconds >"$out/next" 2>&1
        code=$?
        ((code == 0 || code == 8)) && (($(grep -c '"recorded": true' "$out/summary") == 2)) && break
        [[ $seconds == 0.3 ]] || echo "the next start ends with $code: $(tail -n 1 "$out/next")"
    done
    verify "$out" --repair && verify "$out" || echo "after the next start $(verify "$out" --say)"
}

verify() { # FOLDER [--repair | --say]
    if [[ ${2:-} == --say ]]; then "$bin/lenswire" verify "$1" | head -n 1
    else timeout -s KILL "$longest_s" "$bin/lenswire" verify "$@" >/dev/null 2>&1; fi
}

# As one of those that run at once.
if [[ ${slot:-} ]]; then
    what=$(trouble "$work/$slot" "$slot" "$4")
    grep -q struck "$work/$slot/counts" 2>/dev/null || [[ $what == ends* ]] || what="is not reached${what:+; $what}"
    [[ -z $what ]] || echo "$4: $what"
    rm -rf "${work:?}/$slot"
    exit 0
fi

export work
work=$(mktemp -d)
export LENSWIRE_CAMERA_PASSWORD='a secret' LENSWIRE_PASSWORD='a secret'
"$bin/lenswire-camera" --cameras $((2 * slots)) --port 0 --codecs h264,h265+audio >"$work/cameras.log" &
camera=$!
trap 'kill $camera; wait $camera; rm -rf "$work"' EXIT
until [[ -s $work/cameras.log ]]; do
    kill -0 $camera || exit
    read -rt 0.02 <> <(:)
done

# What a recorder leaves that was killed while it recorded.
mkdir "$work/left"
until [[ -n $(find "$work/left" -name '*.mkv') ]]; do longest_s=2.5 record "$work/left" 0 100 &>/dev/null; done

# NUMBER... of a point that is called so often.
numbers() { # CALLS
    if [[ $extent == --sample ]]; then
        echo $((($1 + 1) / 2))
    else
        local step=$((($1 - each) / each))
        seq 1 $(($1 < each ? $1 : each)) && seq $((each + 1)) $((step > 0 ? step : 1)) "$1"
    fi
}

cases() {
    local point calls errors number error
    while read -r point calls errors; do
        [[ $extent == --all ]] || errors=1
        [[ $extent == --sample && $point != recorder/* && $point != sqlite/* ]] && continue
        for number in $(numbers "$calls"); do
            for ((error = 0; error < (errors); ++error)); do echo "$point:$number:$error"; done
        done
    done
}

extent=$4
if [[ $extent == --* ]]; then
    mkdir "$work/count"
    cp -r "$work/left/." "$work/count"
    record "$work/count" 0 1.3 env LD_PRELOAD="$preload" LENSWIRE_FAIL_COUNTS="$work/counts" &>"$work/out" || (($? == 8)) || { cat "$work/out" && exit 1; }
    cases <"$work/counts" >"$work/cases"
else
    echo "$extent" >"$work/cases"
fi
xargs -a "$work/cases" -P $slots -n 1 --process-slot-var=slot "$0" "${@:1:3}" | tee "$work/found"
echo "$(wc -l <"$work/cases") faults: $(grep -vc ': is not reached$' "$work/found") failed, $(grep -c ': is not reached' "$work/found") not reached"
[[ -s $work/cases ]] && ! grep -qv ': is not reached$' "$work/found"
