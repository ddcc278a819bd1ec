# shellcheck shell=bash
# What this project needs of Debian 12, by purpose, and the way to get it. Sourced by the scripts beside it.

declare -A packages=(
    [build]="g++ cmake make ninja-build googletest libcli11-dev scdoc"
    [programs]="pkg-config libsqlite3-dev libssl-dev libelf-dev libavformat-dev libavcodec-dev libavutil-dev
        nlohmann-json3-dev libtomlplusplus-dev libbenchmark-dev ffmpeg"
    [demo]="jq"
    [i386]="g++-12-multilib"
    [armhf]="g++-arm-linux-gnueabihf qemu-user-static"
    [abi]="gcc abigail-tools"
    [fuzz]="clang-14 libclang-rt-14-dev"
    [lint]="clang-format clang-tidy shellcheck"
    [package]="debootstrap dpkg-dev file"
    [bench]="python3 binutils"
    [cost]="python3 valgrind"
)

# Of the packages named, those that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || echo "$package"
    done
}

# Runs apt-get without questions, as root or through sudo.
apt_get() {
    local as_root=()
    ((EUID == 0)) || as_root=(sudo)
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=600 "$@" </dev/null
}

# install_packages PURPOSE...: does nothing where all is there, and says what it installs where not.
install_packages() {
    local purpose list missing wanted=()
    for purpose in "$@"; do
        read -r -d '' -a list <<<"${packages[$purpose]}" || true
        wanted+=("${list[@]}")
    done
    if ! command -v dpkg-query >/dev/null; then
        echo "This is no Debian: make sure that the likes of these are installed: ${wanted[*]}" >&2
        return 0
    fi
    mapfile -t missing < <(missing_packages "${wanted[@]}")
    ((${#missing[@]} > 0)) || return 0

    echo "Installing Debian packages: ${missing[*]}"
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        echo "Neither root nor sudo. As root, type: apt-get install --no-install-recommends ${missing[*]}" >&2
        return 1
    fi
    apt_get update >/dev/null || echo "apt-get update failed; trying with the lists at hand" >&2
    apt_get install -y --no-install-recommends "${missing[@]}" >/dev/null
}
