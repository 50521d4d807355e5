#!/bin/sh
# A report killed, or refused a disk-changing call, anywhere in its life: each channel holds it once.
set -eu
faults=$1 life=$2
top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
want=$(printf 'd7\ne7\nf7\nm7\nn7')

# Two runs of a process that delivers; then each channel holds the report once, or none does where
# nobody was promised anything, and nothing is left but names that were never written.
check() {
    "$life" deliver "$top/d"
    held=$([ -e "$top/d/held" ] && sort "$top/d/held" || :)
    if [ "$held" != "$want" ] && { [ -e "$top/d/written" ] || [ -n "$held" ]; }; then
        echo "$1: the channels hold: $held"
        exit 1
    fi
    "$life" deliver "$top/d"
    [ "$held" = "$([ -e "$top/d/held" ] && sort "$top/d/held" || :)" ] || { echo "$1: twice"; exit 1; }
    left=$(find "$top/d/work/message" -mindepth 1 ! -empty ! -name '.*.new' 2> /dev/null || :)
    [ -z "$left" ] || { echo "$1: left $left"; exit 1; }
}

for how in kill once; do
    n=1
    while :; do
        rm -rf "$top/d"
        mkdir "$top/d"
        "$life" deliver "$top/d"
        status=0
        if [ $how = kill ]; then
            "$faults" kill $n "$life" live "$top/d" > /dev/null 2>&1 || status=$?
        else
            "$faults" once $n 28 "$life" live "$top/d" > /dev/null 2>&1 || status=$?
        fi
        check "$how at call $n"
        [ "$n" -lt "${calls:-9999}" ] && { [ $how = once ] || [ $status -ne 0 ]; } || break
        n=$((n + 1))
    done
    echo "$how: $n calls"
    calls=$n
done
[ "$n" -gt 20 ] || { echo "only $n calls: nothing was tried"; exit 1; }
