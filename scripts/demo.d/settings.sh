# shellcheck shell=bash disable=SC2154 # the demo has set them
# A camera's settings, read and changed; each change is read back in a login of its own. Sourced by the demo.

# One value of a setting, by its name.
field() { # camera what field
    lenswire --json get "$1" "$2" | jq ".fields.\"$3\""
}

# Cameras take their time to move; waits until this one stands.
await_stand() { # camera
    local tries moving
    for ((tries = 0; tries < 50; ++tries)); do
        moving=$(field "$1" ptz moving) || break
        [[ $moving != '"no"' ]] || return 0
        sleep 0.2
    done
    problem "$1: does not come to a stand"
}

settings_page() {
    local camera late
    start_cameras "$out/settings.log" || return
    camera=admin@$(addresses_in "$out/settings.log")
    show info "$camera"

    show set "$camera" image brightness=200
    [[ $(field "$camera" image brightness) == 200 ]] || problem "$camera: the brightness did not stay"

    show ptz "$camera" preset 3
    await_stand "$camera"
    show get "$camera" ptz
    [[ $(field "$camera" ptz preset) == 3 ]] || problem "$camera: does not stand at preset 3"

    show cruise "$camera" start 1
    [[ $(field "$camera" ptz cruise-line) == 1 ]] || problem "$camera: cruise line 1 does not run"

    show set "$camera" time year=2020
    show time "$camera" --set
    late=$(($(date +%s) - $(date -u -d "$(lenswire --json time "$camera" | jq -r .time)" +%s)))
    ((late >= -2 && late <= 2)) || problem "$camera: its clock is $late seconds late"
    stop_cameras
}
