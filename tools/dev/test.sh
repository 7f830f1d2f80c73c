# ./dev test and ./dev stress: first on the target, then natively under sanitizers.

# test_all [ROOM] [CTEST OPTIONS]: whoever asks for a part gets it from the target alone, quickly.
test_all() {
    [ $# = 0 ] || { inside_only test "$@"; return; }
    ensure_sanitize_root # before minutes are spent on building
    inside_only test
    sanitize --short
    finish "test: $(grep --count 'status="run"' build/debug/test-report.xml) passed, 0 failed on the target;" \
        "nothing to report under the sanitizers"
}

# stress_all [SEED]: one seed for both.
stress_all() {
    local seed=${1:-$RANDOM$RANDOM}
    ensure_sanitize_root
    inside_only stress "$seed"
    sanitize thread address --stress "$seed"
    finish "stress: passed with seed $seed, on the target and under the sanitizers"
}

sanitize() {
    claim sanitize
    ensure_sanitize_root
    in_toolchain "$sanitize_root" bash tools/dev/sanitize.sh "$@" || exit
}
