# Runs inside a new toolchain root: makes the Wine prefix that every checkout copies.
set -euo pipefail

# Wine's own programs carry debug data; without it the root and each prefix are a third of the size.
cd /usr/lib/x86_64-linux-gnu/wine/x86_64-windows
ls | xargs -P "$(nproc)" -n 40 x86_64-w64-mingw32-strip --strip-debug 2>/dev/null || true

export WINEPREFIX=/wine-prefix
wine wineboot --init </dev/null >/dev/null 2>&1
wineserver --wait
test -e /wine-prefix/system.reg
