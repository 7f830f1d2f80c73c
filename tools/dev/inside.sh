# The part of each verb that runs inside the toolchain root: inside.sh VERB [ARGUMENTS].
set -euo pipefail

. tools/dev/steps.sh
. tools/dev/wine.sh
. tools/dev/ctest.sh

# The flavour's: its build folders, its toolchain file, how its verbs are named in messages.
builds=build
toolchain=cmake/toolchain-mingw-w64-$DEV_FLAVOUR.cmake
for_flavour=''
if [ "$DEV_FLAVOUR" != win32 ]; then
    builds=build/$DEV_FLAVOUR
    for_flavour=" for $DEV_FLAVOUR"
fi

# configure debug|release [OPTIONS]
configure() {
    local kind=$1
    shift
    configure_step "configure $kind$for_flavour" "$builds/$kind" \
        cmake --preset "cross-$kind" -B "$builds/$kind" --toolchain "$toolchain" -DZARVO_WARNINGS_AS_ERRORS=ON "$@"
}

# With targets for the benchmarks, which are built only with "benchmarks".
configure_debug() { configure debug -DZARVO_BUILD_BENCH=ON; }

# compile debug|release [TARGET...]
compile() {
    local kind=$1 how=()
    shift
    [ -t 1 ] || how=(--quiet)
    step "build $kind$for_flavour" ninja -C "$builds/$kind" "${how[@]}" "$@"
}

build() {
    configure_debug
    [ $# != 0 ] || set -- all benchmarks
    compile debug "$@"
    finish "build: $builds/debug is up to date"
}

# test_room [ROOM|LABEL] [CTEST OPTIONS]: of a room only what its tests need is built; any other label may be anywhere.
test_room() {
    local room=''
    if [ $# != 0 ] && [[ $1 != -* ]]; then
        room=$1
        shift
    fi
    configure_debug
    if [ -n "$room" ] && [[ $room != @(stress|soak) ]] && ninja -C "$builds/debug" -t query "room_$room" >/dev/null 2>&1; then
        # Quick, unless something else is asked for.
        [ $# != 0 ] || set -- --label-exclude '^(slow|stress)$'
        compile debug "room_$room"
        start_wine
        run_tests "$builds/debug/tests/$room" "$@"
    else
        # The benchmarks too: they are run seldom, and must not have stopped working when they are.
        compile debug all benchmarks
        start_wine
        [ -z "$room" ] || require_label "$room"
        run_tests "$builds/debug" ${room:+--label-regex "^$room\$"} "$@"
    fi
}

# All tests that need nothing but the tests: not those of the package and of the benchmarks.
test_most() {
    configure_debug
    compile debug
    start_wine
    run_tests "$builds/debug" --label-exclude '^(package|bench)$'
}

# The same without what takes long.
test_quick() {
    configure_debug
    compile debug
    start_wine
    run_tests "$builds/debug" --label-exclude '^(package|bench|slow|stress)$'
}

require_label() {
    local labels
    labels=$(ctest --test-dir "$builds/debug" --print-labels | sed -n 's/^  //p') || fail "list the tests" $?
    grep --quiet --line-regexp --fixed-strings "$1" <<<"$labels" ||
        fail "find the tests of '$1'; there are: $(echo $labels)" 2
}

# stress SEED
stress() {
    local seed=$1
    configure_debug
    compile debug
    start_wine
    say "stress seed $seed"
    export ZARVO_STRESS_SEED=$seed ZARVO_STRESS_FACTOR=${ZARVO_STRESS_FACTOR:-50}
    run_tests "$builds/debug" --label-regex '^stress$'
    finish "stress: passed with seed $seed"
}

# soak [MINUTES]: on the optimised library, as programs have it.
soak() {
    local minutes=${1:-15}
    [[ $minutes =~ ^[0-9]+$ ]] || fail "soak for '$minutes' minutes: it is a number" 2
    configure release -DZARVO_BUILD_TESTS=ON
    compile release soak
    start_wine
    step "soak for $minutes minutes" wine "$builds/release/bin/soak.exe" --seconds $((minutes * 60)) --warm-up 30
    finish "soak: passed"
}

# bench [all] [FILTER]: the usual tables or the long ones too, those that match. Keeps the results of this run only.
bench() {
    local options=() filter name program matched=0 results=$builds/bench/results
    if [ "${1:-}" = all ]; then
        options=(--all)
        shift
    fi
    filter=${1:-.}
    start_wine
    configure release -DZARVO_BUILD_BENCH=ON
    compile release benchmarks
    rm -rf "$results"
    mkdir -p "$results"
    for name in $(cat $builds/release/bench/questions.txt); do
        program=(wine "$builds/release/bin/${name}_bench.exe" --benchmark_filter="$filter" "${options[@]}")
        if "${program[@]}" --benchmark_list_tests 2>/dev/null | grep --quiet .; then
            step "run ${name}_bench" "${program[@]}" --benchmark_out="$results/$name.json"
            matched=$((matched + 1))
        fi
    done
    [ "$matched" != 0 ] || fail "find a benchmark that matches '$filter'"
    say "$matched programs run, every round is in $results/"
}

abi() {
    local dll
    configure_debug
    compile debug
    for dll in ZarvoConcurrency ZarvoOrvaneLogging ZarvoOrvaneUtils ZarvoLogging; do
        step "list the exports of $dll" cmake -D DLL=$builds/debug/bin/$dll.dll -D LIST=abi/$dll.txt -D UPDATE=ON \
            -D OBJDUMP=x86_64-w64-mingw32-objdump -P tools/check_exports.cmake
    done
    finish "abi: the lists in abi/ are written, review them with git diff"
}

package() {
    local version name
    start_wine
    configure release
    compile release
    version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$builds/release/CMakeCache.txt")
    name=ZarvoConcurrency-$version-mingw-w64-$DEV_FLAVOUR
    rm -rf "build/package/$name" "build/package/$name-symbols" "build/package/$name"{,-symbols}.zip
    step "install, then build and run a consumer" cmake -D BUILD="$PWD/$builds/release" \
        -D INSTALL="$PWD/build/package/$name" -D INSTALL_OPTIONS=--strip -D RUN_WITH=wine \
        -D CONSUMER_OPTIONS="-GNinja;--toolchain;$PWD/$toolchain;-DCMAKE_BUILD_TYPE=Release" \
        -P tests/package_consumer/check.cmake
    step "build and run what a newcomer would" cmake -D PACKAGE="$PWD/build/package/$name" -D WORK="$PWD/build/newcomer" \
        -D RUN_WITH=wine -P tests/package_consumer/newcomer.cmake
    [ "$DEV_FLAVOUR" = win32 ] || refuse_others "$name"
    cd build/package
    step "zip the package" cmake -E tar cf "$name.zip" --format=zip "$name"
    # To be unpacked over the package, so that each file comes beside its DLL.
    mkdir symbols
    mv "$name-symbols" "symbols/$name"
    (cd symbols && step "zip the debug data" cmake -E tar cf "../$name-symbols.zip" --format=zip "$name")
    rm -r symbols
    sha256sum -- *.zip >SHA256SUMS
    cd ../..
    finish "package: build/package/$name.zip ($(du -h "build/package/$name.zip" | cut -f1))"
}

# refuse_others PACKAGE: in the root that has all compilers, this package and the default one, where it is here: each has two to
# refuse, and the default one this flavour's program, too.
refuse_others() {
    local tests=tests/package_consumer other
    step "refuse other compilers" cmake -D PACKAGE="build/package/$1" -D REFUSED=2 -P $tests/refusals.cmake
    for other in "build/package/${1%-*}-win32" build/debug/package; do
        [ ! -e "$other/bin/ZarvoConcurrency.dll" ] || step "refuse other compilers and programs" cmake -D PACKAGE="$other" \
            -D REFUSED=2 -D PROGRAM="$builds/release/package_consumer/package_consumer.exe" -D RUN_WITH=wine -P $tests/refusals.cmake
    done
}

hanging_program() {
    configure_debug
    compile debug hanging_with_dlls
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
    wine "$builds/release/bin/$name.exe" "$@"
}

# On purpose with a prefix of its own: a shell may stay open while another terminal runs the tests. A second one waits.
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
