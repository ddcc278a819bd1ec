#!/usr/bin/env bash
# includes.sh ROOT: each folder includes only what it may, each room of recorder, camera and bench only itself
# and the rooms above it, and no files include each other in a circle; a header and its source count as one
# file. One line per fault.
set -uo pipefail
root=$1

# What each folder may include, beside system headers.
declare -A allowed=([recorder]="recorder/* lenswire/*"
    [check]="check/* lenswire/*"
    [camera]="camera/* lenswire/protocol.h lenswire/ptz_codes.h lenswire/version.h"
    [bench]="bench/* lenswire/* pteClient/message_cutter.h camera/media/frame_source.h recorder/archive/keeper.h
        recorder/host/host.h recorder/session/plugin.h"
    [examples]="lenswire/* ring.h frame_queue.h"
    [fuzz]="fuzz/* lenswire/* pteClient/* privateConfigure/* camera/* recorder/host/ring.h recorder/media/*
        recorder/records/* tests/support/*")
for folder in "$root"/src/*/; do
    name=$(basename "$folder")
    allowed[src/$name]="$name/* common/* lenswire/*"
done
# The rooms of each folder, from the top floor down.
declare -A floor_of rooms=([recorder]="support records media archive host session cli"
    [camera]="wire media device serve program"
    [bench]="support cameras host receivers rounds micro cost soak"
    [fuzz]="support targets cut")
for folder in "${!rooms[@]}"; do
    floor=0
    for room in ${rooms[$folder]}; do floor_of[$folder/$room]=$((floor++)); done
done
# An include in angle brackets is a system header unless it names one of these.
ours=" src include bench check examples fuzz lenswire recorder camera tests $(cd "$root/src" && echo */ | tr -d /) "

may_include() { # folder target
    local pattern
    [[ $2 != *..* ]] || return 1
    for pattern in ${allowed[$1]}; do
        # shellcheck disable=SC2053 # a pattern is what is wanted
        [[ $2 == $pattern ]] && return
    done
    return 1
}

stands_above() { # file target: the target is in the file's room or in one above it
    local mine=${floor_of[${1%/*}]-} its=${floor_of[${2%/*}]-}
    [[ -n $mine && -n $its ]] && ((its <= mine))
}

broken=0
fault() {
    echo "$*"
    broken=1
}

edges=
set -f
for folder in "${!allowed[@]}"; do
    while IFS=: read -r file line text; do
        file=${file#"$root"/}
        target=${text#*[\"<]}
        target=${target%%[\">]*}
        first=${target%%/*}
        [[ $text =~ include[[:space:]]*\< && $target != *..* && $ours != *" $first "* ]] && continue
        may_include "$folder" "$target" || fault "$file:$line: $folder may not include $target"
        [[ -z ${rooms[$folder]-} || $first != "$folder" ]] || stands_above "$file" "$target" ||
            fault "$file:$line: $target is in no room above it"
        [[ $folder != src/* ]] || target=src/$target
        edges+="${file%.*} ${target%.*}"$'\n'
    done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cpp' --include='*.c' \
        --include='*.inc' "$root/$folder")
done
[[ -n $edges ]] || fault "no include found under $root"
while read -r file; do fault "$file: in a circle of includes"; done < <(
    tsort <<<"$edges" 2>&1 >/dev/null | sed -n 's/^tsort: \([^-]\)/\1/p' | sort -u)
exit $broken
