# ./dev bench [flavours] [all] [FILTER]: measures inside the toolchain, then puts the goals beside what was measured, or the flavours
# beside each other.

bench() {
    if [ "${1:-}" = flavours ]; then
        bench_flavours "${@:2}"
        return
    fi
    claim build
    ensure_toolchain
    ensure_charts_root # before minutes are spent on measuring
    inside bench "$@" || exit
    local folder=$(flavour_folder)/bench
    step "put the goals beside the figures" in_toolchain "$charts_root" python3 -B tools/bench/report.py "$folder"
    finish "bench: figures in $folder/results/*.json, goals in $folder/goals.md"
}

# In turn, twice: what the machine does beside it is the same for both.
bench_flavours() {
    local round folder=build/bench/flavours
    claim build
    ensure_charts_root
    rm -rf "$folder"
    mkdir -p "$folder"
    for round in 1 2; do
        for flavour in "${tested[@]}"; do
            ensure_toolchain
            inside bench "$@" || exit
            cp -r "$(flavour_folder)/bench/results" "$folder/$flavour-$round"
        done
    done
    flavour=${flavours[0]}
    step "put the flavours beside each other" in_toolchain "$charts_root" python3 -B tools/bench/flavours.py "$folder" "${tested[@]}"
    finish "bench: the table is in $folder/flavours.md"
}
