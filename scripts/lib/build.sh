# shellcheck shell=bash
# Configuring and building a preset, the same way for every script. Sourced; goes to the project's root.

cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1
# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh

# The purposes whose packages a preset needs.
purposes_of() {
    case $1 in
        release | debug | asan | tsan) echo build programs ;;
        fuzz) echo build programs fuzz ;;
        i386 | armhf) echo build "$1" ;;
        *) return 1 ;;
    esac
}

# configure_preset PRESET [OPTION...]: installs what it needs, and configures build/PRESET.
configure_preset() {
    # shellcheck disable=SC2046 # words are what is wanted
    install_packages $(purposes_of "$1") || return
    export CMAKE_GENERATOR=${CMAKE_GENERATOR:-Ninja}
    if command -v ccache >/dev/null; then
        # What one checkout compiled serves the others.
        export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
        export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    fi
    cmake --preset "$1" --log-level=WARNING "${@:2}" >/dev/null
}

# build_preset PRESET [TARGET...]: everything where no target is named.
build_preset() {
    local preset=$1 quiet=()
    shift
    configure_preset "$preset" || return
    echo "Building $preset in build/$preset"
    [[ -t 1 ]] || quiet=(-- --quiet)
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"} "${quiet[@]}"
}
