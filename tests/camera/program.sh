#!/usr/bin/env bash
# program.sh LENSWIRE_CAMERA: what the program says to bad input, and that it ends cleanly on a signal.
# One line per fault.
set -uo pipefail
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fault() {
    echo "$*"
    failed=1
}

# One clear line on standard error, nothing on standard output, exit code 2, and never a password.
refuses() {
    "$program" --password hunter2 "$@" >"$work/out" 2>"$work/err"
    local code=$?
    ((code == 2)) || fault "$*: exit code $code"
    [[ ! -s $work/out && $(wc -l <"$work/err") == 1 ]] || fault "$*: not one line on standard error"
    ! grep -q hunter2 "$work/err" || fault "$*: shows the password"
}

refuses --cameras 0
refuses --cameras 2 --address 255.255.255.255
refuses --address nowhere
refuses --port 65536
refuses --codecs h264,vp9
refuses --clips "$work" --codecs h265
refuses --clip "main=$work/missing.h264"
refuses --clip "audio=$work"
refuses --synthetic much
refuses --fault nonsense
refuses --fault 2/close
refuses --platform longer-than-eight
refuses --user "$(printf '%032d' 0)"
refuses --password-file "$work/missing"
refuses --passwort=hunter2
refuses hunter2

for signal in INT TERM; do
    "$program" --cameras 2 --port 0 --password hunter2 >"$work/out" 2>&1 &
    camera=$!
    until (($(grep -c '^camera ' "$work/out") == 2)) || ! kill -0 $camera 2>/dev/null; do read -rt 0.02 <> <(:); done
    kill -$signal $camera
    wait $camera || fault "SIG$signal: exit code $?"
    (($(grep -c ' logins 0 ' "$work/out") == 2)) || fault "SIG$signal: no summary"
    ! grep -q hunter2 "$work/out" || fault "SIG$signal: shows the password"
done
exit $failed
