# ./dev coverage [CTEST OPTIONS], inside the coverage root: which lines and branches of the library the tests run.
set -euo pipefail

. tools/dev/steps.sh
. tools/dev/wine.sh
. tools/dev/ctest.sh

folder=build/coverage
export WINEPREFIX=$WINEPREFIX-coverage

# What the compiler adds for exceptions that pass through, and what cannot be reached, are no branches of the source.
read_counts() {
    gcovr --root . --filter 'concurrency/' --gcov-executable x86_64-w64-mingw32-gcov-win32 \
        --exclude-throw-branches --exclude-unreachable-branches \
        --html-details $folder/html/index.html --txt $folder/summary.txt --print-summary $folder
}

coverage() {
    # Without the checks: each of them would be a branch.
    quiet_step "configure" "$folder/configure.log" cmake --preset cross-debug -B $folder -DZARVO_COVERAGE=ON \
        -DZARVO_CHECKED=OFF
    step "build" ninja -C $folder --quiet
    find $folder -name '*.gcda' -delete
    start_wine
    run_tests $folder --exclude-regex '^(two_builds_are_identical|bench_programs_run|package_serves_a_consumer)$' "$@"
    mkdir -p $folder/html
    step "read the counts" read_counts
    finish "coverage: $folder/html/index.html, $folder/summary.txt"
}

coverage "$@"
