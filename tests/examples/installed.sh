#!/usr/bin/env bash
# installed.sh BUILD_DIR VERSION: what is installed into an empty folder suffices to build and run the example, found by
# pkg-config and by CMake; the installed programs find the plug-in and the clips, and say their version.
set -uo pipefail
# shellcheck source=tests/examples/cameras.sh
source "${0%/*}/cameras.sh"
version=$2
failed=0
fault() { echo "$*" && failed=1; }
expect() { [[ $2 == "$3" ]] || fault "$1: \"$2\" instead of \"$3\""; } # what found wanted

cmake --install "$1" --prefix "$work/root" >"$work/install.log" || { cat "$work/install.log" && exit 1; }
PKG_CONFIG_PATH=$(dirname "$(find "$work/root" -name lenswire.pc)")
export PKG_CONFIG_PATH
plugin=$(pkg-config --variable=plugindir lenswire)/liblenswire.so
[[ $(pkg-config --cflags lenswire) == *"$work/root"* && $(realpath "$plugin") == "$work/root"* ]] ||
    fault "pkg-config does not find the installed tree"
expect "pkg-config" "$(pkg-config --modversion lenswire)" "$version"
note=$(readelf -p .note.lenswire "$plugin" | awk '/\[/ { print $NF }' | xargs)
expect "the plug-in's note" "$note" "lenswire $version"
[[ -f ${plugin%.so}-check.so ]] || fault "the checking plug-in is not installed beside the plug-in"
for program in lenswire lenswire-camera; do
    expect "$program --version" "$("$work/root/bin/$program" --version)" "$program $version"
done

examples=$work/root/share/lenswire/examples
mkdir "$work/make"
make -C "$work/make" -f "$examples/Makefile" >"$work/build.log" 2>&1 || fault "make: $(cat "$work/build.log")"
{ cmake -S "$examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/root" && cmake --build "$work/cmake"; } \
    >"$work/build.log" 2>&1 || fault "cmake: $(cat "$work/build.log")"

start_cameras "$work/root/bin/lenswire-camera" 4
for made_by in make cmake; do
    for program in "record $plugin" "record-linked -"; do
        counts "$work/$made_by/${program% *}" "${program#* }" "${cameras[0]}" || fault "$made_by, $program: counts no frames"
        address=${cameras[0]/ /:}
        cameras=("${cameras[@]:1}")
    done
done
"$work/root/bin/lenswire" get "admin@$address" image >"$work/out" 2>&1 || fault "lenswire: $(cat "$work/out")"
exit $failed
