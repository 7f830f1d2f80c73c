# Makes the toolchain roots: small Debian trees, unpacked once into the cache and never run as a system.

suite=trixie
recipe=1 # raise it when what is done to the unpacked packages changes
cache=$(realpath --canonicalize-missing "${DEV_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zarvo-dev}")

packages_common=base-files,bash,coreutils,dash,sed,grep,findutils,gawk,diffutils,libc-bin
packages_build=g++-mingw-w64-x86-64-win32,mingw-w64-tools,cmake,ninja-build,ccache,googletest
packages_run=nlohmann-json3-dev,wine # what the tests read traces with, and what they run in
packages_flavours=g++-mingw-w64-ucrt64,g++-mingw-w64-x86-64-posix,clang-19,lld-19
sources_build=benchmark # only as sources: it is built for Windows, like googletest
packages_lint=clang-format-19,clang-tidy-19,python3-minimal
packages_coverage=gcovr
packages_docs=doxygen,python3
packages_debugger=gdb-mingw-w64,binutils-mingw-w64-x86-64
packages_charts=python3-matplotlib
packages_sanitize=clang-19,libclang-rt-19-dev,llvm-19,libstdc++-14-dev,cmake,ninja-build,ccache,googletest,gdb,librapidcheck-dev,python3-clang-19

# The flavours of the library, named for their compilers: what --toolchain takes. The first is everybody's. The first ones are tested and
# packaged, the others only built.
flavours=(win32 ucrt64 posix clang)
tested=("${flavours[@]:0:2}")
flavour=${flavours[0]}

# Sets toolchain_root: the flavour's cross compiler, CMake and Wine. All flavours but the first share a root.
ensure_toolchain() {
    if [ "$flavour" = "${flavours[0]}" ]; then
        ensure_root toolchain "$packages_common,$packages_build,$packages_run" "$sources_build"
    else
        ensure_root flavours "$packages_common,$packages_build,$packages_run,$packages_flavours" "$sources_build"
    fi
    toolchain_root=$made_root
}

# Sets lint_root: the same compiler beside clang's tools.
ensure_lint_root() {
    ensure_root lint "$packages_common,$packages_build,$packages_lint"
    lint_root=$made_root
}

# Sets sanitize_root: a native compiler with the sanitizers' runtimes, which do not exist for Windows here, and gdb.
ensure_sanitize_root() {
    ensure_root sanitize "$packages_common,$packages_sanitize"
    sanitize_root=$made_root
}

# Sets coverage_root: the toolchain beside the program that reads its counts.
ensure_coverage_root() {
    ensure_root coverage "$packages_common,$packages_build,$packages_run,$packages_coverage"
    coverage_root=$made_root
}

# Sets debugger_root: Wine, beside a debugger that reads the target's files.
ensure_debugger_root() {
    ensure_root debugger "$packages_common,$packages_run,$packages_debugger"
    debugger_root=$made_root
}

# Sets docs_root.
ensure_docs_root() {
    ensure_root docs "$packages_common,$packages_docs"
    docs_root=$made_root
}

# Sets charts_root: what turns measurements into tables and pictures.
ensure_charts_root() {
    ensure_root charts "$packages_common,$packages_charts"
    charts_root=$made_root
}

# take_flavour ARGUMENTS: sets flavour from --toolchain NAME, and arguments to what else there is.
take_flavour() {
    arguments=()
    while [ $# != 0 ]; do
        case $1 in
            --toolchain)
                [[ " ${flavours[*]} " == *" ${2:-} "* ]] || fail "know the toolchain '${2:-}'; there are: ${flavours[*]}" 2
                flavour=$2
                shift
                ;;
            *) arguments+=("$1") ;;
        esac
        shift
    done
}

# The root's name holds a hash of all that decides its contents, so that a change makes a new one.
root_key() { echo "$suite $recipe $*" | sha256sum | cut -c1-12; }

# ensure_root KIND PACKAGES [SOURCE]: sets made_root, made first when it is missing.
ensure_root() {
    made_root=$cache/$1-$(root_key "${@:2}")
    if [ ! -e "$made_root/.complete" ] || ! command -v bwrap >/dev/null; then ensure_host_packages; fi
    require_sandbox
    [ ! -e "$made_root/.complete" ] || return 0
    mkdir -p "$cache"
    exec 9>"$made_root.lock"
    flock --nonblock 9 || { say "wait: another ./dev is making $made_root"; flock 9; }
    [ -e "$made_root/.complete" ] || make_root "$@"
    exec 9>&-
}

make_root() {
    say "make the $1 root (once): Debian $suite in $made_root"
    local new=$made_root.new
    rm -rf "$new" "$made_root"
    unpack_packages "$new" "${@:2}" || fail "unpack the packages of the $1 root (DEV_MIRROR names another mirror)" $?
    bash "$project/tools/dev/finish_root.sh" "$new" || fail "finish the $1 root" $?
    mv "$new" "$made_root"
    case $1 in
        toolchain | flavours | coverage | debugger) prepare_wine "$made_root" || fail "prepare Wine" $? ;;
    esac
    rm -f "$new.log"
    touch "$made_root/.complete"
}

# On purpose: packages are only unpacked. No maintainer script runs, so this works without privileges
# and finish_root.sh does by hand the few things those scripts would have done.
unpack_packages() {
    local target=$1 packages=$2 source=${3:-} mirror as_root=() hooks=()
    mirror=$(debian_mirror)
    [ "$(id -u)" = 0 ] || as_root=(unshare --user --map-root-user)
    hooks=(--extract-hook='cd "$1/var/cache/apt/archives" && ls *.deb | sort >"$1/etc/toolchain-versions"')
    if [ -n "$source" ]; then
        hooks+=(--setup-hook='sed "s/^deb /deb-src /" "$1/etc/apt/sources.list" >"$1/etc/apt/sources.list.d/sources.list"')
        hooks+=(--extract-hook="cd \"\$1/usr/src\" && sh '$project/tools/dev/unpack_source.sh' $source")
    fi
    TMPDIR=$cache TAR_OPTIONS=--no-same-owner "${as_root[@]}" mmdebstrap \
        --mode=root --variant=extract --skip=chroot/mount \
        --aptopt='APT::Sandbox::User "root"' --aptopt='Apt::Install-Recommends "false"' "${hooks[@]}" \
        --include="$packages" "$suite" "$target" ${mirror:+"deb $mirror $suite main"} >"$target.log" 2>&1 && return
    local code=$?
    tail -n 20 "$target.log" >&2
    return "$code"
}

# Every checkout copies this prefix: making one takes far longer than copying it.
prepare_wine() {
    mkdir "$1/wine-prefix"
    local sandbox_options=(--bind "$1/usr" /usr --bind "$1/wine-prefix" /wine-prefix)
    in_toolchain "$1" bash tools/dev/first_prefix.sh
}

# The mirror this machine itself uses, if it is a Debian; empty means mmdebstrap's default.
debian_mirror() {
    if [ -n "${DEV_MIRROR:-}" ]; then echo "$DEV_MIRROR"; return; fi
    [ "$(. /etc/os-release && echo "${ID:-}")" = debian ] || return 0
    local lists=()
    mapfile -t lists < <(find /etc/apt/sources.list /etc/apt/sources.list.d -name '*.sources' -o -name '*.list' 2>/dev/null)
    [ ${#lists[@]} = 0 ] || awk -f "$project/tools/dev/debian_mirror.awk" "${lists[@]}"
}

ensure_host_packages() {
    local missing=()
    command -v mmdebstrap >/dev/null || missing+=(mmdebstrap)
    command -v bwrap >/dev/null || missing+=(bubblewrap)
    [ -e /usr/share/keyrings/debian-archive-keyring.gpg ] || missing+=(debian-archive-keyring)
    [ ${#missing[@]} != 0 ] || return 0
    local install=(apt-get install --yes --no-install-recommends "${missing[@]}")
    if [ "$(id -u)" != 0 ] || ! command -v apt-get >/dev/null; then
        printf 'dev: this machine lacks %s. Run this once, then try again:\n\n    sudo %s\n' \
            "${missing[*]}" "${install[*]}" >&2
        fail "find the host packages" 3
    fi
    say "install the host packages: ${install[*]}"
    export DEBIAN_FRONTEND=noninteractive
    "${install[@]}" </dev/null || { apt-get update && "${install[@]}" </dev/null; } ||
        fail "install the host packages" $?
}
