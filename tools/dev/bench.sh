# ./dev bench [all] [FILTER]: measures inside the toolchain, then puts the goals beside what was measured.

bench() {
    claim build
    ensure_toolchain
    ensure_charts_root # before minutes are spent on measuring
    inside bench "$@" || exit
    step "put the goals beside the figures" in_toolchain "$charts_root" python3 -B tools/bench/report.py build/bench
    finish "bench: figures in build/bench/results/*.json, goals in build/bench/goals.md"
}
