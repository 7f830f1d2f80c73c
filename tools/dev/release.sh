# ./dev release: the files of a release, from a clean tree. It tags nothing: docs/releasing.md says what a person does.

release() {
    local version files=build/release-files
    version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
    [ -z "$(git status --porcelain)" ] || fail "find a clean tree: commit or remove what git status shows" 2
    grep --quiet "^## $version " CHANGELOG.md || fail "find $version in CHANGELOG.md" 2
    ! grep --quiet "^## $version (not released yet)" CHANGELOG.md || say "CHANGELOG.md says that $version is not released yet"
    claim build
    claim docs
    ensure_docs_root
    rm -rf build/package
    for flavour in "${tested[@]}"; do # the second looks at the first one's package, too
        ensure_toolchain
        inside package || exit
    done
    flavour=${flavours[0]}
    in_toolchain "$docs_root" bash tools/dev/docs.sh || exit
    rm -rf "$files"
    mkdir -p "$files"
    cp build/package/*.zip "$files"
    step "pack the reference" tar --create --gzip --file "$files/ZarvoConcurrency-$version-reference.tar.gz" \
        --directory build/docs --sort=name --owner=0 --group=0 --mtime="@$(git log -1 --format=%ct)" html
    (cd "$files" && sha256sum -- * >SHA256SUMS)
    say "look at the files, then run by hand:"
    printf '    git tag --annotate v%s --message "ZarvoConcurrency %s" %s\n    git push origin v%s\n' \
        "$version" "$version" "$(git rev-parse --short HEAD)" "$version"
    finish "release: $(wc -l <"$files/SHA256SUMS") files and SHA256SUMS of $version in $files, nothing is tagged"
}
