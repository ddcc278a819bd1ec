#!/usr/bin/env bash
# Plants includes in a copy of the sources; the check must name the bad ones and let the good ones be.
set -uo pipefail
here=$(dirname "$0")
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
cp -r "$here"/../../{src,recorder,camera} "$copy"
failed=0

expect() { # good|bad folder include
    local file=$copy/$2/planted.h verdict=good
    echo "#include $3" >"$file"
    "$here/includes.sh" "$copy" >"$copy/output" || verdict=bad
    rm "$file"
    [[ $verdict == good ]] || grep -q "^$2/planted.h:1: " "$copy/output" || verdict="bad elsewhere: $(cat "$copy/output")"
    [[ $verdict == "$1" ]] || { echo "#include $3 in $2 is $1, the check says $verdict" && failed=1; }
}

expect good src/pteClient '"pteClient/planted.h"'
expect good src/pteClient '"planted.h"'
expect good src/pteClient '"common/wire.h"'
expect good src/privateConfigure '"lenswire/records.h"'
expect good src/privateConfigure '<vector>'
expect good recorder '"lenswire/stream.h"'
expect good recorder '<libavformat/avformat.h>'
expect good camera '"lenswire/protocol.h"'
expect bad src/pteClient '"privateConfigure/pending_requests.h"'
expect bad src/privateConfigure '"pteClient/client_table.h"'
expect bad src/privateConfigure '<pteClient/client_table.h>'
expect bad src/privateConfigure ' "../pteClient/client_table.h"'
expect bad src/pteClient '"cipher/des.h"'
expect bad src/common '"pteClient/client_table.h"'
expect bad src/cipher '"linklist/list.h"'
expect bad src/pteClient 'SOME_HEADER'
expect bad recorder '"common/wire.h"'
expect bad recorder '<common/wire.h>'
expect bad recorder '"camera/camera.h"'
expect bad camera '"lenswire/records.h"'
expect bad camera '"common/wire.h"'
expect bad camera '"recorder/ring.h"'
expect bad camera '<src/common/wire.h>'
exit $failed
