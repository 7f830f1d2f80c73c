# ./dev matrix [TESTS]: what each flavour can do, by the verbs that a person would use, as one table. TESTS are which
# tests run: all (default), quick, or what else follows ./dev test. Ends with a failure if a cell has one.

# cell NAME COMMAND...: runs ./dev with its output in a file. Sets outcome: yes, or FAILED.
cell() {
    local log=$project/build/matrix/$1.log
    shift
    say "./dev $* > ${log#"$project/"}"
    if "$project/dev" "$@" >"$log" 2>&1 </dev/null; then outcome=yes; else outcome=FAILED; failures=$((failures + 1)); fi
}

matrix() {
    local failures=0 outcome name rows=() tests
    mkdir -p "$project/build/matrix"
    [ $# != 0 ] || set -- all
    for name in "${tested[@]}"; do
        local row=$name
        cell "$name-build" build --toolchain "$name"
        row+=" $outcome"
        cell "$name-tests" test "$@" --toolchain "$name"
        tests=$(sed -n 's/^\([0-9]*\) passed, \([0-9]*\) failed$/\1 passed, \2 failed/p' "$project/build/matrix/$name-tests.log" | tail -n 1)
        row+=" ${tests// /_}"
        [ -n "$tests" ] || row+=$outcome
        cell "$name-demo" demo --toolchain "$name"
        row+=" $outcome"
        cell "$name-package" package --toolchain "$name"
        rows+=("$row $outcome")
    done
    for name in "${flavours[@]:${#tested[@]}}"; do
        cell "$name-build" build ZarvoConcurrency --toolchain "$name"
        rows+=("$name $outcome - - -")
    done
    printf '\n%-8s %-7s %-26s %-7s %s\n' flavour build tests demo consumer
    for row in "${rows[@]}"; do printf '%-8s %-7s %-26s %-7s %s\n' $row | tr _ ' '; done
    [ "$failures" = 0 ] || fail "matrix: $failures cells; their output is in build/matrix"
    finish "matrix: no failure"
}
