#!/bin/bash
# terminal_shows_progress.sh PROGRAM EMULATOR...: on a terminal the progress is drawn again and again, by a recurrent task,
# and Ctrl+C, typed there, cancels. gawk lends the terminal.
set -euo pipefail

program=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/tree"
echo small >"$folder/tree/a"
truncate -s 1T "$folder/tree/endless"

printf -v command '%q ' "$@" "$program" "Z:${folder//\//\\}\\tree"
export ZARVO_LOG="file:Z:${folder//\//\\}\\log"
COMMAND="stty cols 80 rows 24; exec $command 2>&1 >$folder/digests" gawk '
    BEGIN {
        command = ENVIRON["COMMAND"]
        PROCINFO[command, "pty"] = 1
        RS = "left|\n"
        speed = "[0-9.]+ (bytes|[KMGT]iB)/s"
        while ((command |& getline text) > 0) {
            print text
            if (text ~ "\\[[#.]+\\] +[0-9]+ %  1/2 files +[0-9]+ files/s +" speed " +[0-9:]+ $" && ++drawn == 3) {
                printf "\003" |& command
                fflush(command)
            }
            summarised = summarised || text ~ "file_digests: 1 done, 0 failed, 1 cancelled; "
        }
        code = close(command)
        if (code != 2 || !summarised) {
            print "exit code " code ", summary seen: " summarised
            exit 1
        }
    }'
[ "$(grep -c 'Task \[Status line\] started' "$folder/log")" -ge 3 ]
[ "$(grep -c 'still in schedule' "$folder/log")" = 0 ]
(cd "$folder/tree" && sha256sum a) | diff - "$folder/digests"
