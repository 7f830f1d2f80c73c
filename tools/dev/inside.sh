# The part of each verb that runs inside the toolchain root: inside.sh VERB [ARGUMENTS].
set -euo pipefail

. tools/dev/steps.sh

# A private copy of the pristine prefix, with its services running. They inherit the first process's pipes, so Wine
# is started here, on its own: a service that holds ninja's or ctest's pipe open makes them wait for ever.
start_wine() {
    if [ "$(cat "$WINEPREFIX/.made-from" 2>/dev/null)" != "$DEV_ROOT" ]; then
        rm -rf "$WINEPREFIX"
        cp -a --reflink=auto /wine-prefix "$WINEPREFIX"
        echo "$DEV_ROOT" >"$WINEPREFIX/.made-from"
    fi
    trap 'wineserver --kill || true' EXIT
    wineserver --persistent </dev/null >/dev/null 2>&1
    wine cmd /c exit </dev/null >/dev/null 2>&1 || fail "start Wine" $?
}

# configure debug|release [OPTIONS]
configure() {
    local kind=$1
    shift
    quiet_step "configure $kind" "build/$kind/configure.log" \
        cmake --preset "cross-$kind" -DZARVO_WARNINGS_AS_ERRORS=ON "$@"
}

# compile debug|release [TARGET...]
compile() {
    local kind=$1 how=()
    shift
    [ -t 1 ] || how=(--quiet)
    step "build $kind" ninja -C "build/$kind" "${how[@]}" "$@"
}

build() {
    configure debug
    compile debug "$@"
    finish "build: build/debug is up to date"
}

# A test that mostly sleeps counts for one job, every other for sixteen: the long waits pass beside the rest, of which
# as many run as there are processors.
ctest_jobs() { echo $((16 * $(nproc) + 16)); }

# run_tests [CTEST OPTIONS]: runs them, prints the totals, and fails when a test failed or none ran.
run_tests() {
    local report=build/debug/test-report.xml code=0 total failed unrun
    rm -f "$report"
    say "run the tests: ctest --test-dir build/debug --parallel $(ctest_jobs) $*"
    ctest --test-dir build/debug --parallel "$(ctest_jobs)" --output-on-failure --no-tests=error --no-label-summary \
        --output-junit "$PWD/$report" "$@" || code=$?
    total=$(report_count tests)
    failed=$(report_count failures)
    unrun=$(($(report_count skipped) + $(report_count disabled)))
    printf '\n%d passed, %d failed\n' $((total - failed - unrun)) "$failed"
    [ "$code" = 0 ] || fail "run the tests" "$code"
}

# report_count ATTRIBUTE: of the test report's head.
report_count() {
    local count
    count=$(sed -n "1,/>/s/.*[[:space:]]$1=\"\([0-9]*\)\".*/\1/p" build/debug/test-report.xml 2>/dev/null | head -n 1)
    echo "${count:-0}"
}

# run_tests_of [ROOM] [CTEST OPTIONS]
test_room() {
    local selection=()
    if [ $# != 0 ] && [[ $1 != -* ]]; then
        selection=(--label-regex "^$1\$")
        shift
    fi
    configure debug
    compile debug
    start_wine
    run_tests "${selection[@]}" "$@"
}

stress() {
    local seed=${1:-$RANDOM$RANDOM}
    configure debug
    compile debug
    start_wine
    say "stress seed $seed"
    export ZARVO_STRESS_SEED=$seed ZARVO_STRESS_ROUNDS=${ZARVO_STRESS_ROUNDS:-50}
    run_tests --label-regex '^stress$'
    finish "stress: passed with seed $seed"
}

bench() {
    local filter=${1:-all} program
    start_wine
    configure release -DZARVO_BUILD_BENCH=ON
    compile release benchmarks
    [ "$filter" != all ] || filter=.
    for program in build/release/bin/*_bench.exe; do
        step "run ${program##*/}" wine "$program" --benchmark_filter="$filter"
    done
    finish "bench: done"
}

abi() {
    configure debug
    compile debug ZarvoConcurrency
    step "list the exports" cmake -D DLL=build/debug/bin/ZarvoConcurrency.dll -D LIST=abi/exports.txt -D UPDATE=ON \
        -D OBJDUMP=x86_64-w64-mingw32-objdump -P tools/check_exports.cmake
    finish "abi: abi/exports.txt is written, review it with git diff"
}

package() {
    local version name
    start_wine
    configure release
    compile release
    version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/release/CMakeCache.txt)
    name=ZarvoConcurrency-$version-mingw-w64
    rm -rf build/package
    step "install, then build and run a consumer" cmake -D BUILD="$PWD/build/release" \
        -D INSTALL="$PWD/build/package/$name" -D INSTALL_OPTIONS=--strip -D RUN_WITH=wine \
        -D CONSUMER_OPTIONS="-GNinja;--toolchain;$PWD/cmake/toolchain-mingw-w64.cmake;-DCMAKE_BUILD_TYPE=Release" \
        -P tests/package_consumer/check.cmake
    cd build/package
    step "zip the package" cmake -E tar cf "$name.zip" --format=zip "$name"
    cd ../..
    finish "package: build/package/$name.zip ($(du -h "build/package/$name.zip" | cut -f1))"
}

build_example() {
    configure release
    compile release "$1"
}

# run_example NAME [ARGUMENTS]: its standard output is the verb's, nothing else is printed there.
run_example() {
    local name=$1
    shift
    start_wine
    wine "build/release/bin/$name.exe" "$@"
}

# On purpose with a prefix of its own: a shell may stay open while another terminal runs the tests.
shell() {
    export WINEPREFIX=$WINEPREFIX-shell
    start_wine
    if [ $# = 0 ]; then bash; else "$@"; fi
}

verb=$1
shift
case $verb in
    test) test_room "$@" ;;
    *) "$verb" "$@" ;;
esac
