#!/bin/sh
# A report killed, or refused a disk-changing call, anywhere in its life: each channel gets it, and
# none but the one that was struck between its answer and the note of it gets it again: [I-23].
# STRIDE: every so many calls; each second time what comes next is killed, too.
set -eu
faults=$1 life=$2
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
want=$(printf 'd7\ne7\nf7\nm7\nn7')

# Behind two runs of a process that delivers. No channel has it where nobody was promised anything;
# nothing is left but names that were never written.
check() {
    "$life" deliver "$top/d"
    "$life" deliver "$top/d"
    [ -e "$top/d/held" ] || : > "$top/d/held"
    held=$(sort -u "$top/d/held")
    if [ "$held" != "$want" ] && { [ -e "$top/d/written" ] || [ -n "$held" ]; }; then
        echo "$1: the channels got: $held"
        exit 1
    fi
    [ "$(sort "$top/d/held" | uniq -d | wc -l)" -le $deaths ] &&
        [ "$(wc -l < "$top/d/held")" -le $((5 + deaths)) ] || {
        echo "$1: twice:" $(cat "$top/d/held")
        exit 1
    }
    left=$(find "$top/d/work/message" -mindepth 1 ! -empty ! -name '.*.new' 2> /dev/null || :)
    [ -z "$left" ] || { echo "$1: left $left"; exit 1; }
}

turn=0
for how in ${HOWS:-kill once}; do
    n=1
    while :; do
        rm -rf "$top/d"
        mkdir "$top/d"
        "$life" deliver "$top/d"
        status=0 deaths=1
        if [ $how = kill ]; then
            "$faults" kill $n "$life" live "$top/d" > /dev/null 2>&1 || status=$?
            turn=$((turn + 1))
            if [ $((turn % 2)) -eq 0 ]; then
                deaths=2
                "$faults" kill $((turn / 2 % 12 + 1)) "$life" deliver "$top/d" > /dev/null 2>&1 || :
            fi
        else
            "$faults" once $n 28 "$life" live "$top/d" > /dev/null 2>&1 || status=$?
        fi
        check "$how at call $n"
        [ "$n" -lt "${calls:-9999}" ] && { [ $how = once ] || [ $status -ne 0 ]; } || break
        n=$((n + ${STRIDE:-1}))
    done
    echo "$how: $n calls"
    calls=$n
done
[ "$n" -gt 20 ] || { echo "only $n calls: nothing was tried"; exit 1; }
