# ./dev demo [FOLDER] [OPTIONS]: the digests of a real tree, computed by the example and checked by sha256sum.

demo() {
    local folder=$project arguments=() digests=$project/build/demo.sha256 code=0
    if [ $# != 0 ] && [[ $1 != --* ]]; then
        folder=$(cd "$caller" && cd "$1" 2>/dev/null && pwd -P) || fail "open the folder '$1'" 2
        sandbox_options=(--ro-bind "$folder" /input)
        arguments=('Z:\input')
        shift
    fi
    claim build
    ensure_toolchain
    inside build_example file_digests || exit
    digest_files "$digests" "${arguments[@]}" "$@" || code=$?
    verify_digests "$folder" "$digests"
    local verified="$(wc -l <"$digests") digests of $folder verified, they are in build/demo.sha256"
    case $code in
        0) finish "demo: $verified" ;;
        1) fail "digest every file: some could not be read; $verified" 1 ;;
        2) fail "digest every file: cancelled; $verified" 2 ;;
        *) fail "digest the files" "$code" ;;
    esac
}

# On purpose: an interrupt reaches the program alone, which stops its tasks and reports; its digests so far are verified.
digest_files() (
    trap '' INT
    local output=$1
    shift
    say "digest the files: file_digests.exe $* > build/demo.sha256"
    inside run_example file_digests "$@" >"$output"
)

verify_digests() {
    if [ ! -s "$2" ]; then
        say "verify the digests: there is none"
        return
    fi
    cd "$1"
    step "verify the digests" sha256sum --check --quiet --strict "$2"
    cd "$project"
}
