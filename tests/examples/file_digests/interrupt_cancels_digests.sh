#!/bin/bash
# interrupt_cancels_digests.sh PROGRAM EMULATOR...: an interrupt, which reaches the program as Ctrl+C does, cancels what
# is not done and keeps what is.
set -euo pipefail

program=$1
shift
folder=$(mktemp -d)
process=
trap 'kill -KILL $process 2>/dev/null || true; rm -rf "$folder"' EXIT
mkdir "$folder/tree"
echo small >"$folder/tree/a"
truncate -s 1T "$folder/tree/endless"

# windows_path PATH
windows_path() { echo "Z:${1//\//\\}"; }

# start [OPTIONS]: returns when the small file is done and the endless one is being read.
start() {
    rm -f "$folder/log"
    ZARVO_LOG=file:$(windows_path "$folder/log") "$@" "$program" "$(windows_path "$folder/tree")" "${options[@]}" \
        >"$folder/digests" 2>"$folder/messages" &
    process=$!
    until grep -q 'Task \[a\] stopped' "$folder/log" && grep -q 'Task \[endless\] started' "$folder/log"; do
        kill -0 $process
    done 2>/dev/null
}

for threads in pool dedicated; do
    options=(--threads $threads)
    start "$@"
    kill -INT $process
    code=0
    wait $process || code=$?
    [ "$code" = 2 ]
    (cd "$folder/tree" && sha256sum a) | diff - "$folder/digests"
    grep -q '1 done, 0 failed, 1 cancelled' "$folder/messages"
done
