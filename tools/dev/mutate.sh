# ./dev mutate ROOM [OPTIONS], inside the sanitizers' root: the room compiled once with all of its mutants, which its tests
# then have to notice, one after the other.
set -euo pipefail

export CC=clang-19 CXX=clang++-19

exec python3 -B tools/mutation/mutate.py "$@"
