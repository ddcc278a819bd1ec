#!/usr/bin/env bash
# program.sh LENSWIRE_CAMERA: what the program adds to its cameras: it refuses bad input with one clear line and
# exit code 2, says what it received, ends cleanly on a signal, and never shows a password. One line per fault.
set -uo pipefail
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fault() { echo "$*" && failed=1; }

while read -ra arguments; do
    LENSWIRE_CAMERA_PASSWORD=hunter2 "$program" "${arguments[@]}" >"$work/out" 2>"$work/err"
    code=$?
    if ((code != 2)) || [[ -s $work/out || $(wc -l <"$work/err") != 1 ]] || grep -q hunter2 "$work/err"; then
        fault "${arguments[*]}: exit code $code, $(cat "$work/out" "$work/err")"
    fi
done <<END
--cameras 0
--cameras 2 --address 255.255.255.255
--codecs h264,vp9
--clips $work --codecs h265
--clip main=$work/missing.h264
--fault 2/close
--platform longer-than-eight
--user $(printf '%032d' 0)
--password $(printf '%033d' 0)
--password-file $work/missing
--passwort=hunter2
hunter2
END

for signal in INT TERM; do
    "$program" --cameras 2 --port 0 --password hunter2 --fault 1/garbage=9 >"$work/out" 2>&1 &
    camera=$!
    until (($(grep -c '^camera ' "$work/out") == 2)) || ! kill -0 $camera 2>/dev/null; do read -rt 0.02 <> <(:); done
    # Two requests for a serial number: each answer of the first camera has rubbish behind it.
    for number in 1 2; do
        address=$(sed -n "s|^camera \([^ :]*\):\([0-9]*\).*|/dev/tcp/\1/\2|p" "$work/out" | sed -n ${number}p)
        exec 3<>"$address"
        for _ in 1 2; do printf '\0\0\1\1\1\1%26s' "" | tr ' ' '\0' >&3; done
        spoilt=$(head -c 80 <&3 | LC_ALL=C grep -ac $'\xA5\xA5\xA5\xA5\xA5\xA5\xA5\xA5\xA5')
        ((spoilt == 2 - number)) || fault "--fault 1/: camera $number"
    done
    kill -$signal $camera
    wait $camera || fault "SIG$signal: exit code $?"
    if (($(grep -c ' logins 0 ' "$work/out") != 2)) || grep -q hunter2 "$work/out"; then
        fault "SIG$signal: $(cat "$work/out")"
    fi
done
exit $failed
