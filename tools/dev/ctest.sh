# Running tests, for whoever has built some.

# A test that mostly sleeps counts for one job, every other for sixteen: the long waits pass beside the rest, of which
# as many run as there are processors.
ctest_jobs() { echo $((16 * $(nproc) + 16)); }

# run_tests FOLDER [CTEST OPTIONS]: runs the tests below a folder of the build, prints the totals, and fails when a test
# failed or none ran.
run_tests() {
    local folder=$1 failures=$1/Testing/Temporary/LastTestsFailed.log report=$1/test-report.xml code=0
    shift
    rm -f "$report" "$failures"
    say "run the tests: ctest --test-dir $folder --parallel $(ctest_jobs) $*"
    ctest --test-dir "$folder" --parallel "$(ctest_jobs)" --output-on-failure --no-tests=error --no-label-summary \
        --output-junit "$PWD/$report" "$@" || code=$?
    # On purpose two sources: ctest counts as failed what it could not start, its report does not.
    printf '\n%d passed, %d failed\n' "$(count_lines 'status="run"' "$report")" "$(count_lines . "$failures")"
    [ "$code" = 0 ] || fail "run the tests" "$code"
}

count_lines() { grep --count "$1" "$2" 2>/dev/null || true; }
