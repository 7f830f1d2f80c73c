# How every verb speaks: one line per step, the failing step by name, one closing line.

say() { printf '\n> %s\n' "$*"; }

# step NAME COMMAND...: announces, runs, and ends the verb when the command fails.
step() {
    local name=$1
    shift
    say "$name: $*"
    "$@" || fail "$name" $?
}

# quiet_step NAME LOG COMMAND...: the same, but the output is shown only when the command fails.
quiet_step() {
    local name=$1 log=$2
    shift 2
    say "$name: $*"
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 && return
    local code=$?
    cat "$log" >&2
    fail "$name" "$code"
}

# configure_step NAME FOLDER CMAKE_COMMAND...: configures a build folder, unless it was configured so before. What becomes of
# changed CMake files is ninja's business; of the presets it knows nothing. What was configured otherwise is forgotten.
configure_step() {
    local name=$1 folder=$2 how
    shift 2
    how="$DEV_ROOT $(cksum <CMakePresets.json) $*"
    if [ -e "$folder/build.ninja" ] && [ "$(cat "$folder/.configured" 2>/dev/null)" = "$how" ]; then return; fi
    rm -rf "$folder/.configured" "$folder/CMakeCache.txt" "$folder/CMakeFiles"
    quiet_step "$name" "$folder/configure.log" "$@"
    echo "$how" >"$folder/.configured"
}

fail() {
    printf '\ndev: FAILED: %s (exit code %s)\n' "$1" "${2:-1}" >&2
    exit "${2:-1}"
}

finish() { printf '\ndev: %s\n' "$*"; }
