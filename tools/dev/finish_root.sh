# finish_root.sh ROOT: does by hand what the unpacked packages' maintainer scripts would have done.
# On purpose a process of its own: in a function of a caller who asks for its outcome, a failing command would not end it.
set -euo pipefail

# Python's arrays need them where Debian's alternatives would have put them.
link_algebra() {
    ln -sf blas/libblas.so.3 lapack/liblapack.so.3 usr/lib/x86_64-linux-gnu/
}

link_compiler() {
    local tool
    for tool in gcc g++ c++ cpp gcov gcc-ar gcc-ranlib gcc-nm; do
        if [ -e usr/bin/x86_64-w64-mingw32-$tool-win32 ]; then
            ln -sf x86_64-w64-mingw32-$tool-win32 usr/bin/x86_64-w64-mingw32-$tool
        fi
    done
}

# Wine refuses to start a program without its zlib1.dll, which Debian's maintainer script derives from MinGW's:
# the same file with a mark at byte 64 that tells Wine it is one of its own.
finish_wine() {
    local pair mingw folder tool
    for pair in x86_64:x86_64 i686:i386; do
        mingw=usr/${pair%:*}-w64-mingw32/lib/zlib1.dll
        folder=usr/lib/x86_64-linux-gnu/wine/${pair#*:}-windows
        if [ -d "$folder" ] && [ -e "$mingw" ]; then
            { head -c 64 "$mingw"; printf 'Wine builtin DLL'; head -c 16 /dev/zero; tail -c +97 "$mingw"; } \
                >"$folder/zlib1.dll"
        fi
    done
    for tool in wine:wine64 wineserver:wineserver64; do
        printf '#!/bin/sh\nexec /usr/lib/wine/%s "$@"\n' "${tool#*:}" >"usr/bin/${tool%:*}"
        chmod 755 "usr/bin/${tool%:*}"
    done
}

cd "$1"
rm -rf usr/share/{doc,man,locale,info} etc/{apt,hostname,resolv.conf}
printf 'root:x:0:0:root:/tmp:/bin/bash\nuser:x:%s:%s::/tmp:/bin/bash\n' "$(id -u)" "$(id -g)" |
    awk -F: '!seen[$3]++' >etc/passwd
printf 'root:x:0:\nuser:x:%s:\n' "$(id -g)" | awk -F: '!seen[$3]++' >etc/group
ln -sf gawk usr/bin/awk
if [ -e usr/bin/x86_64-w64-mingw32-gcc-win32 ]; then link_compiler; fi
if [ -d usr/lib/wine ]; then finish_wine; fi
if [ -d usr/lib/x86_64-linux-gnu/blas ]; then link_algebra; fi
