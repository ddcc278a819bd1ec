# shellcheck shell=bash disable=SC2154 # the demo has set them
# New firmware for two cameras, one of which fails. Sourced by the demo.

upgrade_page() {
    local cameras file code
    mkdir -p "$out/kept" || return
    start_cameras "$out/upgrade.log" --cameras 2 --fault 2/upload-close=700000 --reboot 1 \
        --keep-firmware "$out/kept" || return
    mapfile -t cameras < <(addresses_in "$out/upgrade.log")
    cameras=("${cameras[@]/#/admin@}")
    file=$(lenswire firmware make name --size 2000000 --camera "${cameras[0]}" --out "$out")
    show firmware check "$file" --camera "${cameras[0]}"

    show upgrade --yes --restart 30 "$file" "${cameras[@]}" 2>&1 | tee "$out/upgrade.out"
    code=$?
    ((code == 8)) || problem "the upgrade of a camera that fails was no failure"
    grep -q "alarm: firmware upgrade failed on channel 1" "$out/upgrade.out" || problem "no alarm of the failed upgrade"

    cmp "$out"/kept/* "$file" || problem "the good camera, and it alone, should have the file as it is"
    stop_cameras
}
