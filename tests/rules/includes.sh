#!/usr/bin/env bash
# includes.sh ROOT: a folder under src includes its own headers, common/ and lenswire/; recorder its own
# and lenswire/; camera its own and the wire constants. One line per include that breaks this.
set -uo pipefail
root=$1

# What each folder may include, beside system headers and files of its own.
declare -A allowed=([recorder]="recorder/* lenswire/*"
    [camera]="camera/* lenswire/protocol.h lenswire/ptz_codes.h")
for folder in "$root"/src/*/; do
    name=$(basename "$folder")
    allowed[src/$name]="$name/* common/* lenswire/*"
done
# An include in angle brackets is a system header unless it names one of these.
ours=" src include bench lenswire recorder camera tests $(cd "$root/src" && echo */ | tr -d /) "

may_include() { # folder target
    local pattern
    [[ $2 != *..* ]] || return 1
    [[ $2 != */* && -e $root/$1/$2 ]] && return
    for pattern in ${allowed[$1]}; do
        # shellcheck disable=SC2053 # a pattern is what is wanted
        [[ $2 == $pattern ]] && return
    done
    return 1
}

seen=0
broken=0
set -f
for folder in "${!allowed[@]}"; do
    while IFS=: read -r file line text; do
        seen=$((seen + 1))
        target=${text#*[\"<]}
        target=${target%%[\">]*}
        first=${target%%/*}
        [[ $text =~ include[[:space:]]*\< && $target != *..* && $ours != *" $first "* ]] && continue
        may_include "$folder" "$target" && continue
        echo "${file#"$root"/}:$line: $folder may not include $target"
        broken=1
    done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cpp' --include='*.c' \
        --include='*.inc' "$root/$folder")
done
((seen > 0)) || { echo "no include found under $root" && exit 1; }
exit $broken
