# ./dev test and ./dev stress: first on the target, then natively under sanitizers.

. tools/dev/broken.sh

# test_all [all | quick | ROOM | LABEL] [CTEST OPTIONS]: with any of these on the target alone.
test_all() {
    if [ "${1:-}" = all ]; then
        shift
        inside_only test "$@"
        return
    fi
    [ "$*" != quick ] || { inside_only test_quick; return; }
    [ $# = 0 ] || { inside_only test "$@"; return; }
    [ "$flavour" = "${flavours[0]}" ] || { inside_only test_most; return; } # natively they are all the same
    ensure_sanitize_root # before minutes are spent on building
    inside_only test_most
    local passed=$(grep --count 'status="run"' build/debug/test-report.xml)
    release build # for those who only build
    sanitize --short
    finish "test: $passed passed, 0 failed on the target;" \
        "nothing to report natively under the sanitizer for threads"
}

# stress_all [SEED]: one seed for both.
stress_all() {
    local seed=${1:-${ZARVO_STRESS_SEED:-$RANDOM$RANDOM}}
    [[ $seed =~ ^[0-9]+$ ]] || fail "use '$seed' as a seed: it is a number" 2
    [ "$flavour" = "${flavours[0]}" ] || { inside_only stress "$seed"; return; }
    ensure_sanitize_root
    inside_only stress "$seed"
    release build
    sanitize thread address --stress "$seed"
    schedules --pct 70000 --seed "$seed"
    finish "stress: passed with seed $seed, on the target and under the sanitizers"
}

sanitize() {
    claim sanitize
    ensure_sanitize_root
    in_toolchain "$sanitize_root" bash tools/dev/sanitize.sh "$@" || exit
}

# debugger [CTEST OPTIONS]: natively, then on the target.
debugger() {
    claim debugger
    ensure_sanitize_root
    ensure_debugger_root
    in_toolchain "$sanitize_root" bash tools/dev/debugger.sh native "$@" || exit
    inside_only hanging_program
    release build
    in_toolchain "$debugger_root" bash tools/dev/debugger.sh target || exit
}
