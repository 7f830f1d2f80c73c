# ./dev sanitize [SANITIZER ...] [--short | --stress [SEED]] [-- CTEST OPTIONS], inside the sanitizers' root: the
# library's sources built for this system and its tests run, once for each sanitizer.
set -euo pipefail

. tools/dev/steps.sh

export CC=clang-19 CXX=clang++-19

# What the sanitizers are told. Reports go to files, one for each process that has any: a child's are seen too.
set_options() {
    local folder=$1 common
    common="log_path=$PWD/$folder/reports/report:external_symbolizer_path=/usr/lib/llvm-19/bin/llvm-symbolizer"
    # Threads that nobody joins before the process ends are none of its business: the tests count threads themselves.
    export TSAN_OPTIONS="$common:suppressions=$PWD/tests/host/thread_suppressions.txt:second_deadlock_stack=1"
    TSAN_OPTIONS+=:report_thread_leaks=0
    export ASAN_OPTIONS="$common:detect_leaks=1:detect_stack_use_after_return=1"
    export UBSAN_OPTIONS="$common:print_stacktrace=1"
}

count_reports() {
    cat "$1"/reports/report.* 2>/dev/null |
        grep --count --extended-regexp 'WARNING: ThreadSanitizer|ERROR: (Address|Leak)Sanitizer|runtime error:' || true
}

# sanitize_with SANITIZER [CTEST OPTIONS]: adds a line to `summary`.
summary=()
failed=()
sanitize_with() {
    local sanitizer=$1 folder=build/sanitize/$1 code=0 tests reports how=()
    local failures=$folder/Testing/Temporary/LastTestsFailed.log
    shift
    [ -t 1 ] || how=(--quiet)
    configure_step "configure $sanitizer" "$folder" \
        cmake -G Ninja -S tests/host -B "$folder" -D SANITIZER="$sanitizer"
    step "build $sanitizer" ninja -C "$folder" "${how[@]}"
    rm -rf "$folder/reports" "$folder/tests.xml" "$failures"
    mkdir "$folder/reports"
    set_options "$folder"
    say "run the tests under $sanitizer: ctest --test-dir $folder $*"
    ctest --test-dir "$folder" --parallel "$(($(nproc) * 3))" --progress --output-on-failure --no-tests=error \
        --output-junit "$PWD/$folder/tests.xml" "$@" || code=$?
    tests=$(grep --count 'status="run"' "$folder/tests.xml" || true)
    reports=$(count_reports "$folder")
    summary+=("$(printf '%-10s %5d tests passed, %d reports' "$sanitizer" "$tests" "$reports")")
    if [ "$code" != 0 ] || [ "$reports" != 0 ]; then
        cat "$folder"/reports/report.* >&2 2>/dev/null || true
        failed+=("$sanitizer")
        # Named again at the end: their output stands far above it.
        if [ -f "$failures" ]; then
            summary+=("$(sed 's/^[0-9]*:/    failed: /' "$failures")")
        fi
    fi
}

sanitize() {
    local chosen=() options=() sanitizer
    while [ $# != 0 ]; do
        case $1 in
            thread | address) chosen+=("$1") ;;
            --short) be_short ;;
            --stress)
                if [[ ${2:-} =~ ^[0-9]+$ ]]; then stress "$2"; shift; else stress "${ZARVO_STRESS_SEED:-$RANDOM$RANDOM}"; fi ;;
            --) shift; options+=("$@"); break ;;
            *) fail "know '$1'; the sanitizers are: thread address" 2 ;;
        esac
        shift
    done
    [ ${#chosen[@]} != 0 ] || chosen=("${usual[@]}")
    for sanitizer in "${chosen[@]}"; do sanitize_with "$sanitizer" "${kind[@]}" "${options[@]}"; done
    printf '\n'
    printf '%s\n' "${summary[@]}"
    [ ${#failed[@]} = 0 ] || fail "sanitize: ${failed[*]}"
    finish "sanitize: nothing to report"
}

# The sanitizers that nobody has to name, and which tests run under them.
usual=(thread address)
kind=()

# The sanitizer that finds most here, without what takes long.
be_short() {
    usual=(thread)
    kind=(--label-exclude '^(slow|stress)$')
}

# stress SEED
stress() {
    [[ $1 =~ ^[0-9]+$ ]] || fail "use '$1' as a seed: it is a number" 2
    say "stress seed $1"
    export ZARVO_STRESS_SEED=$1
    kind=(--label-regex '^stress$' --repeat until-fail:20)
}

sanitize "$@"
