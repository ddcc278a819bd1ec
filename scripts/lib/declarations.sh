# shellcheck shell=bash
# What headers declare, by name. Sourced; cc is the compiler with its flags.

# The declarations of headers, one a line, without comments, directives and attributes.
declarations() {
    # A directive may span lines.
    # shellcheck disable=SC2154 # whoever sources this has set it
    cat "$@" | sed -e ':again' -e '/\\$/ { N; s/\\\n//; b again' -e '}' | "${cc[@]}" -w -fpreprocessed -dD -E -P -x c - |
        sed '/^[[:space:]]*#/d' | tr '\n' ' ' | sed -E 's/extern "C" \{//g; s/__attribute__ *\(\([^;]*\)\)//g' | tr ';' '\n'
}

# The names that declarations on standard input declare: a function's, or each of an object list's.
declared_names() {
    sed -E -e 's/^.*\}//' -e 's/\[[^]]*\]//g' | awk '
        /\(/ { sub(/ *\(.*/, ""); print $NF; next }
        NF { n = split($0, part, ","); for (i = 1; i <= n; i++) { m = split(part[i], word, " "); print word[m] } }
    ' | sed -E 's/^\*+//' | sort -u
}

# What the library exports, and what its host must; of the headers in a folder.
exported_names() {
    declarations "$1"/*.h | grep LENSWIRE_API | sed 's/LENSWIRE_API//' | declared_names
}
service_names() {
    declarations "$1"/host_services.h | grep -E '\(|extern' | declared_names
}
