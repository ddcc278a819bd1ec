#!/usr/bin/env bash
# imports.sh LIBRARY POINTS...: everything that the library imports is a point of failure, by the list that the
# command POINTS... prints, or stands below as what cannot fail.
set -uo pipefail
library=$1
shift

# By their contracts, or because they only compute.
never_fails="
    __cxa_finalize __errno_location __stack_chk_fail __gmon_start__ _ITM_deregisterTMCloneTable
    _ITM_registerTMCloneTable stderr stdout ucAudioTypeFlag uFreamCount uFreamType
    explicit_bzero memchr memcmp memcpy memmove memset strchr strlen strncmp strnlen strstr strcmp strcpy
    free getpid gettimeofday time tzset vsnprintf snprintf inet_addr inet_ntop sched_yield
    pthread_attr_destroy pthread_cond_broadcast pthread_cond_init pthread_cond_signal pthread_cond_wait
    pthread_detach pthread_equal pthread_join pthread_key_delete pthread_mutex_init pthread_mutex_lock
    pthread_mutex_unlock pthread_self pthread_sigmask sem_destroy sem_init sem_post sem_trywait
    sigaddset sigdelset sigemptyset sigfillset sigismember
    MeFree dump_printf uptime ring_set_data_end ring_used_size ring_pop_temp ring_pop_n streamFrameQueueLock
    steramFrameQueueUnlock streamInsertFrameToFrameQueue"

# Names for large files and late times are those of their plain functions.
imports=$("$READELF" --dyn-syms -W "$library" | awk '$7 == "UND" && $8 != "" { sub(/@.*/, "", $8); print $8 }' |
    sed -E 's/^__(.*)64(_r)?$/\1\2/; s/64_time$//; s/_time$//; s/64$//' | sort -u)
[[ -n $imports ]] || { echo "$library imports nothing" && exit 1; }
# shellcheck disable=SC2086 # words are what is wanted
unknown=$(comm -23 <(echo "$imports") <({ "$@" && printf '%s\n' $never_fails; } | sort -u))
[[ -z $unknown ]] || { echo "imported, and neither a point of failure nor known never to fail: ${unknown//$'\n'/ }" && exit 1; }
