#!/usr/bin/env bash
# planted.sh: plants faults for each of the checks; a check must name every one, and let what is sound be.
# CC, CXX and READELF as the checks want them.
set -uo pipefail
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# expect WORDS CHECK ARGUMENT...: the words are in what the check says; when there are none it finds nothing.
expect() {
    local output found=""
    output=$("$here/$2" "${@:3}" 2>&1) || found=1
    [[ -n $1 && -n $found && $output == *"$1"* ]] || [[ -z $1$found$output ]] && return
    printf '%s: %b: expected "%s", the check says "%s"\n' "$2" "$planted" "$1" "$output"
    failed=1
}

# -- Includes in a copy of the sources, where what is sound is found sound without any.
mkdir "$work/root"
cp -r "$here"/../../{src,check,recorder,camera,bench,examples,fuzz} "$work/root"

include() { # file include
    planted="#include $2"
    echo "$planted" >"$work/root/$1"
    expect "$1:1: " includes.sh "$work/root"
    rm "$work/root/$1"
}

include src/pteClient/planted.h '"planted.h"'
include src/privateConfigure/planted.h '<pteClient/client_table.h>'
include src/privateConfigure/planted.h ' "privateConfigure/../pteClient/client_table.h"'
include src/common/planted.h '"pteClient/client_table.h"'
include src/pteClient/planted.h 'SOME_HEADER'
include recorder/cli/planted.h '"common/wire.h"'
include recorder/host/planted.h '"recorder/session/plugin.h"'
include recorder/planted.h '"recorder/support/failure.h"'
include camera/wire/planted.h '"lenswire/records.h"'
include camera/program/planted.h '<src/common/wire.h>'
include examples/planted.h '"recorder/host/ring.h"'
include bench/rounds/planted.h '"bench/micro/planted.h"'
include check/planted.h '"common/wire.h"'
include fuzz/targets/planted.h '"recorder/cli/console.h"'
# A source of a header that the included one includes closes a circle.
planted="a circle of files"
echo '#include "camera/wire/message.h"' >"$work/root/camera/wire/bytes.cpp"
expect "camera/wire/bytes: in a circle" includes.sh "$work/root"
rm "$work/root/camera/wire/bytes.cpp"

# -- Small headers.
mkdir -p "$work/headers/lenswire"

header() { # words text-of-the-header [text-of-lenswire.h]
    planted=$2
    printf '%b' "$2" >"$work/headers/lenswire/planted.h"
    printf '%b' "${3-#include \"lenswire/planted.h\"\n}" >"$work/headers/lenswire/lenswire.h"
    expect "$1" headers.sh "$work/headers"
}

header "" '#pragma once\n#include <stdint.h>\ntypedef uint8_t planted;\n'
header "planted.h: does not compile alone as c11" '#pragma once\nuint8_t planted(void);\n'
header "planted.h: does not compile alone as c++20" '#pragma once\nint planted(int class);\n'
header "planted.h: does not compile alone as c11" 'struct planted { int once; };\n'
header "planted.h: not in lenswire.h" '#pragma once\nint planted(void);\n' '#pragma once\nint other(void);\n'

# -- Small libraries and their headers.
mkdir -p "$work/library/lenswire"
read -r -a cc <<<"$CC"
header='#define LENSWIRE_API __attribute__((visibility("default")))
#ifdef __cplusplus
extern "C" {
#endif
/* Twice a number; never LENSWIRE_API int commented(void); */
LENSWIRE_API int doubled(int number,
                         char* (*unused)(int));
LENSWIRE_API void* nothing(void);  // a pointer; LENSWIRE_API int commented_too(void);
extern LENSWIRE_API unsigned char first_switch, second_switch;
extern LENSWIRE_API int table[4];'
services='int service(int number) __attribute__((const));
extern unsigned char flags[];
#define LENSWIRE_HOST_SERVICES(X) \
    X(service)                    \
    X(flags)'
source='#include <pthread.h>
#include "lenswire/planted.h"
#include "lenswire/host_services.h"
unsigned char first_switch, second_switch;
int table[4];
int doubled(int number, char* (*unused)(int)) { return table[0] + flags[0] + service(2 * number); }
void* nothing(void) { static pthread_t t; pthread_create(&t, 0, 0, 0); return doubled(1, 0) ? &t : 0; }'
symbolic=('-Wl,-Bsymbolic')

symbols() { # words header services source [link-option...]
    planted=$4
    echo "$2" >"$work/library/lenswire/planted.h"
    echo "$3" >"$work/library/lenswire/host_services.h"
    echo "$4" >"$work/planted.c"
    "${cc[@]}" -shared -fPIC -fvisibility=hidden -I "$work/library" -o "$work/planted.so" "$work/planted.c" \
        -static-libgcc "${@:5}" || { failed=1 && return; }
    expect "$1" symbols.sh "$work/planted.so" "$work/library"
}

symbols "" "$header" "$services" "$source" "${symbolic[@]}"
symbols "extra: declared, not exported" "$header
LENSWIRE_API int extra(void);" "$services" "$source" "${symbolic[@]}"
symbols "extra: exported, not declared" "$header" "$services" "$source
LENSWIRE_API int extra;" "${symbolic[@]}"
symbols "second_switch: exported, not declared" "${header/, second_switch/}" "$services" "$source
LENSWIRE_API unsigned char second_switch;" "${symbolic[@]}"
symbols "other: imported, no service of the host and not libc" "$header" "$services" "$source
int other(void); int (*used)(void) = other;" "${symbolic[@]}"
symbols "service: declared or listed" "$header" "${services/X(service)/}" "$source" "${symbolic[@]}"
symbols "libm.so.6: needed at run time" "$header" "$services" "$source" "${symbolic[@]}" -Wl,--no-as-needed -lm
symbols "doubled: a host's object of this name would be taken for the library's
table: a host's object of this name would be taken for the library's" "$header" "$services" "$source"
exit $failed
