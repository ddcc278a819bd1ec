#!/usr/bin/env bash
# symbols.sh [--sanitized] LIBRARY INCLUDE_DIR: the library exports what its public headers declare with
# LENSWIRE_API and nothing else; it imports what host_services.h declares, libc and pthreads, and
# nothing else; and none of its own references to its exported names can be bound to a host's.
# CC and READELF are the platform's. A sanitized library drags the sanitizers in: only its exports are looked at.
set -uo pipefail
# shellcheck source=scripts/lib/declarations.sh
source "${0%/*}/../../scripts/lib/declarations.sh"
sanitized=
[[ $1 == --sanitized ]] && sanitized=1 && shift
library=$1
headers=$2/lenswire
read -r -a cc <<<"$CC"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

[[ -f $library ]] || { echo "$library: not there" && exit 1; }

fault() {
    echo "$*"
    failed=1
}

# The dynamic symbols, imported or exported, with their versions.
dynamic_symbols() {
    "$READELF" --dyn-syms -W "$library" | awk -v want="$1" '
        $1 ~ /^[0-9]+:$/ && $8 != "" && $5 != "LOCAL" { if (($7 == "UND") == (want == "imported")) print $8 }' | sort -u
}

exported_names "$headers" >"$work/declared"
dynamic_symbols exported >"$work/exported"
# The address sanitizer marks each exported object with a twin.
[[ -z $sanitized ]] || sed -i '/^__odr_asan\./d' "$work/exported"
[[ -s $work/declared ]] || fault "no header under $headers declares an exported name"
while read -r name; do fault "$name: declared, not exported"; done < <(comm -23 "$work/declared" "$work/exported")
while read -r name; do fault "$name: exported, not declared"; done < <(comm -13 "$work/declared" "$work/exported")
[[ -z $sanitized ]] || exit $failed

service_names "$headers" >"$work/services"
sed -nE 's/^ *X\((\w+)\).*/\1/p' "$headers"/host_services.h | sort -u >"$work/listed"
while read -r name; do fault "$name: declared or listed, not both"; done < <(comm -3 "$work/services" "$work/listed")
while read -r name; do
    case $name in
        *@GLIBC_* | *@GCC_* | __gmon_start__ | _ITM_deregisterTMCloneTable | _ITM_registerTMCloneTable) ;;
        *) grep -qxF "$name" "$work/services" || fault "$name: imported, no service of the host and not libc" ;;
    esac
done < <(dynamic_symbols imported)

while read -r needed; do
    case $needed in
        libc.so.* | libpthread.so.* | ld-linux*.so.* | libgcc_s.so.*) ;;
        *) fault "$needed: needed at run time" ;;
    esac
done < <("$READELF" -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')

while read -r name; do fault "$name: a host's object of this name would be taken for the library's"; done < <(
    "$READELF" -rW "$library" | awk '$5 != "" { print $5 }' | sed 's/@.*//' | sort -u | comm -12 - "$work/exported")
exit $failed
