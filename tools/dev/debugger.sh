# ./dev debugger [CTEST OPTIONS], inside the sanitizers' root: what gdb shows of the library, built for this system.
set -euo pipefail

. tools/dev/steps.sh

export CC=clang-19 CXX=clang++-19
folder=build/debugger
how=()
[ -t 1 ] || how=(--quiet)

configure_step "configure debugger" "$folder" cmake -G Ninja -S tests/host -B "$folder" -D DEBUGGER=ON
step "build debugger" ninja -C "$folder" "${how[@]}"
step "look with gdb" ctest --test-dir "$folder" --output-on-failure --no-tests=error "$@"
finish "debugger: gdb shows what is there"
