# ./dev docs, inside the docs root: reference pages from the headers' own comments, the private ones too, in build/docs.
set -euo pipefail

. tools/dev/steps.sh

# The headers use plain comments: doxygen reads only those with a third slash, and takes a backslash for a command.
settings() {
    cat <<'TEXT'
PROJECT_NAME         = ZarvoConcurrency
OUTPUT_DIRECTORY     = build/docs
INPUT                = README.md CONTRIBUTING.md CHANGELOG.md docs concurrency siblings
RECURSIVE            = YES
FILE_PATTERNS        = *.h *.md
USE_MDFILE_AS_MAINPAGE = README.md
FILTER_PATTERNS      = "*.h=sed -E '/^ *\/\//s|[\\]|&&|g; s|^( *)//( .*)?$|\1///\2|'"
STRIP_FROM_PATH      = .
MACRO_EXPANSION      = YES
EXPAND_ONLY_PREDEF   = YES
PREDEFINED           = ORVANE_CONCURRENCY_API= ZARVO_ORVANE_LOGGING_API= ZARVO_ORVANE_UTILS_API= ZARVO_LOGGING_API=
EXTRACT_ALL          = YES
HAVE_DOT             = YES
DOT_IMAGE_FORMAT     = svg
GENERATE_LATEX       = NO
QUIET                = YES
WARN_IF_UNDOCUMENTED = NO
WARN_AS_ERROR        = FAIL_ON_WARNINGS
TEXT
}

write_pages() { settings | doxygen -; }

rm -rf build/docs
mkdir -p build/docs
step "write the reference pages: doxygen" write_pages
finish "docs: build/docs/html/index.html"
