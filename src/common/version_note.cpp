// The version in the library's file: a note of the owner "lenswire", type 1, for `readelf -n`. The linker
// keeps notes, and a note costs no relocation and no code.
#include "lenswire/version.h"

__asm__(
    ".pushsection .note.lenswire, \"a\", %note\n"
    ".balign 4\n"
    ".long 2f - 1f, 4f - 3f, 1\n"
    "1: .asciz \"lenswire\"\n"
    "2: .balign 4\n"
    "3: .asciz \"" LENSWIRE_VERSION
    "\"\n"
    "4: .balign 4\n"
    ".popsection\n");
