# ./dev models [SEQUENCES [SEED]], inside the sanitizers' root: the models of tests/models beside a native build without a
# sanitizer, for so many random sequences each.
set -euo pipefail

. tools/dev/steps.sh

export CC=clang-19 CXX=clang++-19
export ZARVO_MODEL_SEQUENCES=${1:-${ZARVO_MODEL_SEQUENCES:-150000}} ZARVO_STRESS_SEED=${2:-${ZARVO_STRESS_SEED:-$RANDOM$RANDOM}}
for number in "$ZARVO_MODEL_SEQUENCES" "$ZARVO_STRESS_SEED"; do
    [[ $number =~ ^[0-9]+$ ]] || fail "take '$number' for a number" 2
done
folder=build/models how=()
[ -t 1 ] || how=(--quiet)
configure_step "configure the models" "$folder" cmake -G Ninja -S tests/host -B "$folder"
step "build the models" ninja -C "$folder" "${how[@]}" models_tests models_whitebox_tests
for program in models_tests models_whitebox_tests; do
    step "$ZARVO_MODEL_SEQUENCES sequences for each model" "$folder/bin/$program" --gtest_brief=0
done
finish "models: nothing to report with seed $ZARVO_STRESS_SEED"
