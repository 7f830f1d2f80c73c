# ./dev schedules [FILTER] [OPTIONS], and ./dev schedules --broken [FILTER]: each patch of tests/schedules/broken breaks a protocol of the library, and the scenario that its
# first line names must find it.

schedules() {
    if [ "${1:-}" = --broken ]; then
        broken_schedules "${@:2}"
        return
    fi
    claim schedules
    ensure_sanitize_root
    in_toolchain "$sanitize_root" bash tools/dev/schedules.sh run "$@" || exit
}

broken_folder=$project/build/broken

# The library that is built there is a patched copy, at the place of the checkout's own: so the compiler's cache knows the rest.
broken_schedules() {
    local filter=${1:-} patch name scenario lines=() missed=0 found=0 code
    command -v patch >/dev/null || fail "find the program 'patch' on this machine" 3
    claim schedules
    ensure_sanitize_root
    in_toolchain "$sanitize_root" bash tools/dev/schedules.sh build || exit
    sandbox_options=(--bind "$broken_folder/concurrency" "$project/concurrency" --bind "$broken_folder/build" "$project/build/schedules")
    rm -rf "$broken_folder"
    mkdir -p "$broken_folder"
    cp -a "$project/concurrency" "$broken_folder/concurrency"
    cp -a "$project/build/schedules" "$broken_folder/build"
    for patch in "$project"/tests/schedules/broken/*"$filter"*.patch; do
        name=$(basename "$patch" .patch)
        scenario=$(sed -n '1s/^Found by: //p' "$patch")
        say "break $name: $scenario must find it"
        patch --quiet --strip=1 --directory="$broken_folder" <"$patch" || fail "apply $name"
        code=0
        in_toolchain "$sanitize_root" bash tools/dev/schedules.sh find "$scenario" >"$broken_folder/$name.log" 2>&1 || code=$?
        case $code in
            1) found=$((found + 1)); lines+=("$(printf '%-9s %-44s %s' found "$name" "$(sed -n '/^FAILED/{n;p;q}' "$broken_folder/$name.log")")") ;;
            *) missed=$((missed + 1)); lines+=("$(printf '%-9s %-44s %s' "NOT FOUND" "$name" "$broken_folder/$name.log")") ;;
        esac
        printf '%s\n' "${lines[-1]}"
        restore "$patch"
    done
    printf '\n'
    printf '%s\n' "${lines[@]}"
    [ "$missed" = 0 ] || fail "find $missed of $((found + missed)) broken variants"
    finish "schedules: all $found broken variants found"
}

# restore PATCH: the files that it has changed are the checkout's again, and younger than what was built of them.
restore() {
    local file
    sed -n 's/^+++ b\///p' "$1" | while read -r file; do
        cp "$project/$file" "$broken_folder/$file"
        touch "$broken_folder/$file"
    done
}
