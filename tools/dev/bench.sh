# ./dev bench [all] [FILTER]: measures inside the toolchain, then puts the goals beside what was measured.

bench() {
    claim build
    ensure_toolchain
    ensure_charts_root # before minutes are spent on measuring
    inside bench "$@" || exit
    local folder=$(flavour_folder)/bench
    step "put the goals beside the figures" in_toolchain "$charts_root" python3 -B tools/bench/report.py "$folder"
    finish "bench: figures in $folder/results/*.json, goals in $folder/goals.md"
}
