# ./dev schedules, inside the sanitizers' root: schedules.sh build; schedules.sh run [FILTER] [OPTIONS]; schedules.sh find FILTER, where
# exit code 1 says that a scenario has failed, and no other trouble does.
set -euo pipefail

. tools/dev/steps.sh

export CC=clang-19 CXX=clang++-19

folder=build/schedules

build() {
    local how=()
    [ -t 1 ] || how=(--quiet)
    configure_step "configure schedules" "$folder" cmake -G Ninja -S tests/schedules -B "$folder"
    step "build schedules" ninja -C "$folder" "${how[@]}"
}

run() {
    build
    step "run the scenarios" "$folder/bin/schedules" "$@"
    finish "schedules: every scenario went well"
}

find() {
    (build) || exit 3
    "$folder/bin/schedules" "$@"
}

"$@"
