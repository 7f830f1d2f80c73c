# ./dev lint [--quick], inside the lint root: every check, or those that take seconds.
set -euo pipefail

. tools/dev/steps.sh

sources() { find concurrency programs siblings tests examples bench \( -name '*.h' -o -name '*.cpp' \) -print0; }

check_format() { sources | xargs -0 clang-format-19 --dry-run --Werror; }

format() {
    step "format the sources" fix_format
    finish "format: done, review it with git diff"
}
fix_format() { sources | xargs -0 clang-format-19 -i; }

check_registrations() { ninja -C build/lint -t deps | python3 tools/check_registrations.py; }

# configure_lint FOLDER [OPTIONS]: the library and what ships with it; the tests are only formatted.
configure_lint() {
    local folder=$1
    shift
    quiet_step "configure $folder" "$folder/configure.log" \
        cmake --preset cross-debug -B "$folder" -DZARVO_BUILD_TESTS=OFF -DZARVO_WARNINGS_AS_ERRORS=ON "$@"
}

# check NAME COMMAND...: a step whose failure is remembered, so that one run shows everything there is to repair.
failed_checks=()
check() {
    local name=$1
    shift
    say "$name: $*"
    "$@" || failed_checks+=("$name")
}

check_quickly() {
    check "format (./dev format repairs it)" check_format
    check "include layers" python3 -B tools/check_include_layers.py
    check "include layers are judged" python3 -B tools/check_include_layers_test.py
    check "what MSVC would not take" python3 -B tools/check_msvc.py
    check "what MSVC would not take is judged" python3 -B tools/check_msvc_test.py
    check "traces of logs are judged" python3 -B tools/trace_from_log_test.py
    check "goals are judged" python3 -B tools/bench/goals_test.py
    configure_lint build/lint -DCMAKE_VERIFY_INTERFACE_HEADER_SETS=ON
    step "compile" ninja -C build/lint --quiet
    check "each public header compiles alone" ninja -C build/lint --quiet -k 0 all_verify_interface_header_sets
    check "registrations" check_registrations
    check "exports" cmake -D DLL=build/lint/bin/ZarvoConcurrency.dll -D LIST=abi/ZarvoConcurrency.txt \
        -D OBJDUMP=x86_64-w64-mingw32-objdump -P tools/check_exports.cmake
}

# A tree of its own, in which clang-tidy goes before the compiler: ninja then analyses only what changed.
analyse() {
    local tidy="clang-tidy-19;--quiet;--extra-arg-before=--target=x86_64-w64-mingw32;--extra-arg=-Wthread-safety"
    configure_lint build/tidy -DCMAKE_CXX_CLANG_TIDY="$tidy"
    check "clang-tidy" ninja -C build/tidy --quiet -k 0
}

lint() {
    check_quickly
    [ "${1:-}" = --quick ] || analyse
    if [ ${#failed_checks[@]} != 0 ]; then
        printf '\nfailed: %s\n' "${failed_checks[@]}" >&2
        fail "lint"
    fi
    finish "lint: nothing to object to"
}

"$@"
