#!/bin/sh
# The fault layer counts right, kills before the call it names, and hands out the error it was given.
set -eu
faults=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
work='mkdir a && : > a/one && mv a/one a/two && rm a/two && rmdir a'

calls=$("$faults" count sh -c "$work" 2>&1 | sed -n 's/^calls //p')
[ "$calls" -eq 5 ] || { echo "counted $calls calls, not 5"; exit 1; }

status=0; "$faults" kill 3 sh -c "$work" || status=$?
[ "$status" -eq 137 ] || { echo "kill gave $status"; exit 1; }
[ -e a/one ] && [ ! -e a/two ] || { echo "killed at the wrong call"; exit 1; }
rm -r a

status=0; "$faults" once 1 28 sh -c "$work" 2> err || status=$?
[ "$status" -ne 0 ] && [ ! -e a ] && grep -qi 'no space' err || { echo "no ENOSPC:"; cat err; exit 1; }

# A write to a pipe is no disk change; a write from inside stdio is one.
calls=$("$faults" count sh -c 'echo x | cat > out' 2>&1 | sed -n 's/^calls //p')
[ "$calls" -eq 2 ] || { echo "counted $calls calls for open and write, not 2"; exit 1; }
