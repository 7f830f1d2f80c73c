# ./dev debugger, what gdb shows of the library: debugger.sh native [CTEST OPTIONS] inside the sanitizers' root, of a native build;
# debugger.sh target inside the debugger's root, of the DLL through Wine.
set -euo pipefail

. tools/dev/steps.sh
. tools/dev/wine.sh

native() {
    export CC=clang-19 CXX=clang++-19
    local folder=build/debugger how=()
    [ -t 1 ] || how=(--quiet)
    configure_step "configure debugger" "$folder" cmake -G Ninja -S tests/host -B "$folder" -D DEBUGGER=ON
    step "build debugger" ninja -C "$folder" "${how[@]}"
    step "look with gdb" ctest --test-dir "$folder" --output-on-failure --no-tests=error "$@"
}

# await FILE WORDS: prints the line of the file that begins with the words, when it is there.
await() {
    local line i
    for i in $(seq 600); do
        if line=$(grep --max-count=1 "^$2" "$1" 2>/dev/null); then echo "$line"; return; fi
        sleep 0.1
    done
    cat "$1" >&2
    return 1
}

# On purpose a prefix of its own: its root is not that of the tests.
target() {
    local process port=2345
    export WINEPREFIX=$PWD/build/debugger/wine
    start_wine
    cd build/debug/debugger
    say "start a program, and Wine's half of the debugger"
    rm -f hanging.out debugger.out
    wine hanging.exe </dev/null >hanging.out 2>&1 &
    process=$(await hanging.out ready) || fail "start the program"
    wine winedbg --gdb --no-start --port "$port" "$(printf '0x%x' "${process#ready }" | tr -d '\r')" </dev/null >debugger.out 2>&1 &
    await debugger.out "target remote" >/dev/null || fail "start Wine's half of the debugger"
    export ZARVO_REACH="file hanging.exe|target remote 127.0.0.1:$port" ZARVO_TRANSCRIPT=../../../tests/debugger/hanging.txt
    step "look with gdb through Wine" x86_64-w64-mingw32-gdb --nx --batch -x ../../../tests/debugger/check_transcript.py
    finish "debugger: gdb shows what is there, natively and through Wine"
}

"$@"
