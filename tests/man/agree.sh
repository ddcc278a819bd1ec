#!/usr/bin/env bash
# agree.sh PAGE PROGRAM COMPLETION: every command and option in the program's --help is in the man page at its place,
# every one in the page is in --help, and completion offers them all. Then two faults are planted in the page.
set -uo pipefail
page=$1 program=$2 name=${2##*/}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck source=/dev/null # made for bash at its prompt
source "$3"

# The program, which is asked everything once: it takes its time to load.
ask() {
    local said=$work/said-${*//[^a-z]/-}
    [[ -f $said ]] || "$program" "$@" >"$said" || return
    cat "$said"
}

# Every option with its command, as COMMAND --option; beside them the commands. Walks down the subcommands.
in_help() { # command...
    local help sub
    help=$(ask "$@" --help) || { echo "no help of $*" && return; }
    _lenswire_names options <<<"$help" | grep -vx -- --help | sed "s/^/$*: /"
    for sub in $(_lenswire_names commands <<<"$help"); do
        echo "$* $sub"
        in_help "$@" "$sub"
    done
}
in_page() {
    sed -e 's/\\f[BRIP]//g; s/\\-/-/g; s/\\&//g; s/"//g' "$1" | awk '
        /^\.SH / { command = ""; next }
        /^\.SS / { sub(/^\.SS /, ""); command = $0; print command; next }
        match($0, /^(-[a-zA-Z], )?--[a-z][a-z0-9-]*/) {
            option = substr($0, 1, RLENGTH); sub(/.*--/, "--", option)
            if (option != "--help") print command ": " option }' | sed 's/^ *//'
}
# Options that the text speaks of.
mentioned() { sed 's/\\f[BRIP]//g; s/\\-/-/g' "$1" | grep -oE -- '(^|[ (])--[a-z][a-z0-9-]*' | tr -d ' (' | sort -u; }

in_help | sed 's/^ *//' | sort -u >"$work/help"
{ sed -n 's/.*: --/--/p' "$work/help" && echo --help; } | sort -u >"$work/options"
disagreements() { # page
    in_page "$1" | sort -u | diff "$work/help" - | sed -n 's/^</not in the page:/p; s/^>/not in --help:/p'
    mentioned "$1" | comm -23 - "$work/options" | sed 's/^/no such option: /'
}
failed=0
fault() { echo "$*" && failed=1; }
[[ -s $work/help ]] || fault "$program has no options"
while read -r line; do fault "$line"; done < <(disagreements "$page")

sed '0,/^\\fB--seconds/s//\\fB--planted/' "$page" >"$work/planted"
[[ $(disagreements "$work/planted" | cut -d: -f1 | sort -u | xargs) == "no such option not in --help not in the page" ]] ||
    fault "a planted option is not found"

# Whatever is on standard input is offered where WORD... ends.
completes() { # word...
    local missing wanted
    wanted=$(sort)
    COMP_WORDS=("$name" "$@") COMP_CWORD=$# COMPREPLY=()
    _lenswire ask
    missing=$(printf '%s\n' "${COMPREPLY[@]}" | sort | comm -13 - <(echo "$wanted"))
    [[ -z $missing ]] || fault "not completed: ${*:1:$#-1}" "$missing"
}
completes "" < <(grep -v '[ :]' "$work/help")
while read -ra command; do
    completes "${command[@]}" -- < <(sed -n "s/^${command[*]}: //p" "$work/help")
done < <(sed -n 's/: --.*//p' "$work/help" | sort -u)
exit $failed
