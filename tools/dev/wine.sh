# Wine, for whoever runs programs inside a toolchain root.

# A private copy of the pristine prefix, with its services running. They inherit the first process's pipes, so Wine
# is started here, on its own: a service that holds ninja's or ctest's pipe open makes them wait for ever.
start_wine() {
    if [ "$(cat "$WINEPREFIX/.made-from" 2>/dev/null)" != "$DEV_ROOT" ]; then
        rm -rf "$WINEPREFIX"
        mkdir -p "$(dirname "$WINEPREFIX")"
        cp -a --reflink=auto /wine-prefix "$WINEPREFIX" || fail "copy the Wine prefix" $?
        echo "$DEV_ROOT" >"$WINEPREFIX/.made-from"
    fi
    trap 'wineserver --kill || true' EXIT
    wineserver --persistent </dev/null >/dev/null 2>&1
    wine cmd /c exit </dev/null >/dev/null 2>&1 || fail "start Wine" $?
    # The owner of the desktop, which the first single-threaded apartment would start otherwise: it would inherit the
    # pipe of that test, and ctest would wait for it.
    wine explorer /desktop </dev/null >/dev/null 2>&1 &
}
