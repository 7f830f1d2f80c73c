# ./dev docs, inside the docs root: the reference of what is for callers, and the pages for users, in build/docs.
set -euo pipefail

. tools/dev/steps.sh

version() { sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt; }

# The XML is only for the check.
settings() {
    cat <<TEXT
PROJECT_NAME         = ZarvoConcurrency
PROJECT_NUMBER       = $(version)
OUTPUT_DIRECTORY     = build/docs
INPUT                = $(echo $inputs)
USE_MDFILE_AS_MAINPAGE = README.md
MARKDOWN_ID_STYLE    = GITHUB
FILTER_PATTERNS      = "*.h=python3 -B tools/reference/headers.py" "*.md=python3 -B tools/reference/pages.py"
FILTER_SOURCE_FILES  = NO
STRIP_FROM_PATH      = . siblings
STRIP_FROM_INC_PATH  = . siblings
FORCE_LOCAL_INCLUDES = YES
JAVADOC_AUTOBRIEF    = YES
MACRO_EXPANSION      = YES
EXPAND_ONLY_PREDEF   = YES
PREDEFINED           = ORVANE_CONCURRENCY_API= ZARVO_ORVANE_LOGGING_API= ZARVO_ORVANE_UTILS_API= ZARVO_LOGGING_API= ORVANE_UNNAMED_STRUCT=struct
EXTRACT_ALL          = YES
HIDE_FRIEND_COMPOUNDS = YES
VERBATIM_HEADERS     = NO
HAVE_DOT             = NO
IMAGE_PATH           = docs docs/charts
GENERATE_LATEX       = NO
GENERATE_XML         = YES
XML_PROGRAMLISTING   = NO
QUIET                = YES
WARN_IF_UNDOCUMENTED = NO
WARN_AS_ERROR        = FAIL_ON_WARNINGS
TEXT
}

write_pages() { settings | doxygen -; }

rm -rf build/docs
mkdir -p build/docs
step "judge the checks" python3 -B tools/reference/reference_test.py
inputs=$(python3 -B tools/reference/inputs.py)
step "write the reference pages: doxygen" write_pages
step "copy what the pages link to" python3 -B tools/reference/copy_files.py build/docs/html
step "check the reference" python3 -B tools/reference/check.py build/docs
finish "docs: build/docs/html/index.html"
