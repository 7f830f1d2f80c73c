#!/bin/bash
# sha256sum_accepts_digests.sh PROGRAM EMULATOR...: for names that only other systems allow, the program prints what
# sha256sum prints, and sha256sum accepts it.
set -euo pipefail

program=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
tree=$folder/tree
long=$(printf 'l%.0s' {1..200})/$(printf 'm%.0s' {1..200})
mkdir -p "$tree/sub/deeper" "$tree/quoted \"folder\"" "$tree/$long"
cd "$tree"

number=0
for name in plain 'with  two spaces' ' leading' 'trailing ' '*star' 'what?' '<angle>' 'pipe|' 'colon:' 'quote"' "apostrophe'" \
    'back\slash' 'ends\' $'line\nfeed' $'carriage\rreturn' $'tab\tand\x01more' nul con.txt dot. ..twodots .hidden \
    '%percent%' '$dollar' 'üñïcödé 漢字 😀' -dash --help 'sub/inner' 'sub/back\slash' 'quoted "folder"/inside' "$long/file" \
    Case case back\\ 'sub/-'; do
    echo "content $((++number))" >"$name"
done
mkdir back
echo other >back/slash
: >empty
ln -s plain link_to_file
ln -s .. sub/circle
ln -s nowhere dangling

"$@" "$program" "Z:${tree//\//\\}" >"$folder/digests" 2>"$folder/messages"
grep -q '^file_digests: 1 link to a folder not followed' "$folder/messages"

find . -path ./sub/circle -prune -o -xtype f -printf '%P\0' | LC_ALL=C sort -z | xargs -0 sha256sum -- >"$folder/expected"
diff "$folder/expected" "$folder/digests"
sha256sum --check --strict --quiet "$folder/digests"

# A lone dash would be standard input; a pipe would be waited for.
echo dash >-
mkfifo pipe
code=0
"$@" "$program" "Z:${tree//\//\\}" >"$folder/digests" 2>"$folder/messages" || code=$?
[ "$code" = 1 ]
grep -q '^file_digests: pipe: cannot read a device or a pipe' "$folder/messages"
grep -q '  \./-$' "$folder/digests"
sha256sum --check --strict --quiet "$folder/digests"
rm pipe

# What cannot be written is not silently lost.
code=0
"$@" "$program" "Z:${tree//\//\\}" >/dev/full 2>"$folder/messages" || code=$?
[ "$code" = 1 ]
grep -q 'cannot write' "$folder/messages"
