#!/bin/bash
# interrupt_ends_folder_watch.sh PROGRAM EMULATOR...: a new file is told, the report comes again and again, and an interrupt,
# which reaches the program as Ctrl+C does, ends the watch cleanly.
set -euo pipefail
trap 'echo "line $LINENO: code $?"; tail -n 5 "$folder"/*' ERR

program=$1
shift
folder=$(mktemp -d)
process=
trap 'kill -KILL $process 2>/dev/null || true; rm -rf "$folder"' EXIT
mkdir "$folder/watched"

# until_told TEXT COUNT: waits until that many lines of the program have the text.
until_told() {
    until [ "$(grep -c "$1" "$folder/output")" -ge "$2" ]; do
        kill -0 $process
    done
}

ZARVO_LOG=file:Z:${folder//\//\\}\\log "$@" "$program" "Z:${folder//\//\\}\\watched" >"$folder/output" &
process=$!
until_told '^0 changes so far' 1
echo content >"$folder/watched/new"
until_told '^change 1' 1
until_told '^[1-9][0-9]* changes so far' 2
kill -INT $process
wait $process
grep -q 'changes in all' "$folder/output"
[ "$(grep -c 'still in schedule' "$folder/log")" = 0 ]
