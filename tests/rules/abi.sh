#!/usr/bin/env bash
# abi.sh ROOT PLATFORM: the interface is as its description says; a change of a size, a signature, a value or a name that
# is planted in the headers is named.
set -uo pipefail
root=$1 platform=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
"$root/scripts/abi" "$platform" || failed=1

planted() { # words file sed-command
    rm -rf "$work/include"
    cp -r "$root/include" "$work"
    sed -i -E "$3" "$work/include/lenswire/$2"
    ! cmp -s "$root/include/lenswire/$2" "$work/include/lenswire/$2" || { echo "$3: changes nothing" && failed=1; }
    INCLUDE=$work/include "$root/scripts/abi" "$platform" >"$work/said" 2>&1 || grep -q -- "$1" "$work/said" && return
    echo "$3: not found by scripts/abi, which says: $(cat "$work/said")"
    failed=1
}
planted "StreamConn' changed" records.h 's/reserved\[68\];/reserved[72];/'
planted "export_PC_SendHeartbeat" connection.h 's/PC_SendHeartbeat\(struct CmdClient\* client/&, int kind/'
planted "export_Prv_SetIPCTimeDate" clock.h '/ Prv_SetIPCTimeDate/d'
planted "service_MD_Disarming_Time" host_services.h 's/MD_Disarming_Time\(int/MD_Disarming_Time(unsigned/'
planted "PC_STATE_SPARE" connection.h 's/PC_STATE_SPARE = 6/PC_STATE_SPARE = 9/'
planted "number_LENSWIRE_STREAM_SLOTS" stream.h 's/(SLOTS) 192/\1 193/'
exit $failed
