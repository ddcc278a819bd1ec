#!/usr/bin/env bash
# Builds small libraries and their headers, a sound one and ones with a fault; the check must name each.
set -uo pipefail
here=$(dirname "$0")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
read -r -a cc <<<"$CC"
failed=0

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
extern unsigned char flags[];'
source='#include <pthread.h>
#include "lenswire/planted.h"
#include "lenswire/host_services.h"
unsigned char first_switch, second_switch;
int table[4];
int doubled(int number, char* (*unused)(int)) { return table[0] + flags[0] + service(2 * number); }
void* nothing(void) { static pthread_t t; pthread_create(&t, 0, 0, 0); return doubled(1, 0) ? &t : 0; }'
symbolic=('-Wl,-Bsymbolic')

# expect WORDS HEADER SERVICES SOURCE [LINK-OPTION...]: WORDS is all that the check says.
expect() {
    local output
    mkdir -p "$work/lenswire"
    echo "$2" >"$work/lenswire/planted.h"
    echo "$3" >"$work/lenswire/host_services.h"
    echo "$4" >"$work/planted.c"
    "${cc[@]}" -shared -fPIC -fvisibility=hidden -I "$work" -o "$work/planted.so" "$work/planted.c" \
        -static-libgcc "${@:5}" || { failed=1 && return; }
    output=$("$here/symbols.sh" "$work/planted.so" "$work" 2>&1)
    [[ $output == "$1" ]] || { printf 'expected "%s", the check says "%s"\n' "$1" "$output" && failed=1; }
}

expect "" "$header" "$services" "$source" "${symbolic[@]}"
expect "extra: declared, not exported" "$header
LENSWIRE_API int extra(void);" "$services" "$source" "${symbolic[@]}"
expect "extra: exported, not declared" "$header" "$services" "$source
LENSWIRE_API int extra;" "${symbolic[@]}"
expect "second_switch: exported, not declared" "${header/, second_switch/}" "$services" "$source
LENSWIRE_API unsigned char second_switch;" "${symbolic[@]}"
expect "other: imported, no service of the host and not libc" "$header" "$services" "$source
int other(void); int (*used)(void) = other;" "${symbolic[@]}"
expect "libm.so.6: needed at run time" "$header" "$services" "$source" "${symbolic[@]}" -Wl,--no-as-needed -lm
expect "doubled: a host's object of this name would be taken for the library's
table: a host's object of this name would be taken for the library's" "$header" "$services" "$source"
exit $failed
