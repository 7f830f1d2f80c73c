# Enters a toolchain root with bubblewrap: the root read-only, this checkout at its own path, no network.

# Set by a verb that needs more than the checkout: further options for bubblewrap.
sandbox_options=()

require_sandbox() {
    local reason
    reason=$(bwrap --ro-bind / / --dev /dev --proc /proc --unshare-pid --unshare-net --unshare-ipc true 2>&1) && return
    cat >&2 <<TEXT
dev: bubblewrap cannot make a namespace here: $reason
Where ordinary users may not (Ubuntu 23.10 and later, some containers), either run ./dev as root, or allow it:
    sudo sysctl -w kernel.apparmor_restrict_unprivileged_userns=0     (Ubuntu)
    sudo sysctl -w kernel.unprivileged_userns_clone=1                 (older Debian)
A container must be started with the right to make namespaces.
TEXT
    fail "enter a sandbox" 3
}

# Where a flavour's build folders and Wine prefix are.
flavour_folder() { if [ "$flavour" = "${flavours[0]}" ]; then echo build; else echo "build/$flavour"; fi; }

# in_toolchain ROOT COMMAND...
in_toolchain() {
    local root=$1 name passed_on=()
    shift
    for name in ZARVO_STRESS_SEED ZARVO_STRESS_FACTOR ZARVO_MODEL_SEQUENCES; do
        [ -z "${!name:-}" ] || passed_on+=(--setenv "$name" "${!name}")
    done
    # clang's precompiled headers name the folder that they were made in: another checkout cannot use them.
    [ "$root" != "${sanitize_root:-}" ] || passed_on+=(--setenv CCACHE_NAMESPACE "$project")
    mkdir -p "$cache/ccache"
    env --ignore-environment PATH="$PATH" bwrap --ro-bind "$root/usr" /usr --ro-bind "$root/etc" /etc \
        --symlink usr/bin /bin --symlink usr/sbin /sbin --symlink usr/lib /lib --symlink usr/lib64 /lib64 \
        --dev /dev --proc /proc --ro-bind /sys /sys --tmpfs /tmp --tmpfs /run --dir /var/tmp \
        --bind "$cache/ccache" /ccache --ro-bind-try "$root/wine-prefix" /wine-prefix \
        --bind "$project" "$project" "${sandbox_options[@]}" "${passed_on[@]}" \
        --unshare-pid --unshare-net --unshare-ipc --die-with-parent --chdir "$project" \
        --setenv PATH /usr/bin:/usr/sbin --setenv HOME /tmp --setenv LC_ALL C.UTF-8 --setenv TERM "${TERM:-dumb}" \
        --setenv XDG_RUNTIME_DIR /tmp --setenv DEV_ROOT "${root##*/}" --setenv DEV_FLAVOUR "$flavour" \
        --setenv WINEPREFIX "$project/$(flavour_folder)/wine" --setenv WINEDEBUG -all \
        --setenv WINEDLLOVERRIDES 'mscoree,mshtml=;winemenubuilder.exe=d' \
        --setenv CMAKE_CXX_COMPILER_LAUNCHER ccache --setenv CCACHE_DIR /ccache --setenv CCACHE_MAXSIZE 2G \
        --setenv CCACHE_BASEDIR "$project" --setenv CCACHE_NOHASHDIR 1 --setenv CCACHE_SLOPPINESS pch_defines,time_macros \
        "$@"
}

# The parts of build/ in the order in which one verb claims them. Building, the tests and their Wine prefix are one part.
parts=(build shell docs lint coverage sanitize schedules mutate models debugger)
declare -A claimed=()

# claim PART: one ./dev at a time works on it, until this one ends or releases it.
claim() {
    local descriptor
    [ -z "${claimed[$1]:-}" ] || return 0
    mkdir -p "$project/build"
    exec {descriptor}>"$project/build/.$1.lock"
    claimed[$1]=$descriptor
    flock --nonblock "$descriptor" || { say "wait: another ./dev works on this checkout's $1"; flock "$descriptor"; }
}

release() {
    local descriptor=${claimed[$1]}
    exec {descriptor}>&-
    unset "claimed[$1]"
}

# Waits for every other verb. The locks stay: whoever waits for one would wait for a file that nobody else sees.
clean() {
    local part
    for part in "${parts[@]}"; do claim "$part"; done
    step "empty build/" find build -mindepth 1 -maxdepth 1 ! -name '.*.lock' -exec rm -rf {} +
    finish "clean: build/ is empty"
}
