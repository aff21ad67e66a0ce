#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests:
#   ./test.sh          everything, then all but the end-to-end tests again under the sanitizers, and the library's
#                      tests built for 32-bit ARM, under an emulator, with the server's packages for it
#   ./test.sh --quick  everything once, on this machine's own processor and without sanitizers
#   ./test.sh --unit   the same without the end-to-end tests
#   ./test.sh --coverage   the same tests with counters: how many lines of each folder they run
# At the end stand the failed tests with what they said. The last line counts over all stages: "N passed, N failed".
# The exit code is not 0 when anything failed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

further_stages=(asan tsan armhf armel package-armhf)
players=yes
case "${1:-}" in
    "") ;;
    --quick) further_stages=() ;;
    --unit) further_stages=() players= ;;
    --coverage) exec tests/scripts/coverage.sh ;;
    *)
        sed -n '2,9s/^# \{0,1\}//p' test.sh >&2
        exit 2
        ;;
esac

cmake/install-packages.sh

passed=0
failed=0
summaries=()
failures=()
results="$(mktemp -d)"
builder=
trap 'if [ -n "$builder" ]; then kill -- -"$builder" 2>/dev/null || true; fi; rm -rf "$results"' EXIT

# The sanitizers of GCC 12 need the classic layout of addresses, which some kernels randomise too far.
prefix_of() {
    if [[ "$1" == ?san ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
        echo "setarch $(uname -m) -R"
    fi
}

# build <preset>: leaves the file <preset>.built when all went well.
build() {
    local preset="$1" prefix
    read -r -a prefix <<<"$(prefix_of "$preset")"
    echo "== $preset: configure and build"
    { [ "$preset" != package-armhf ] || cmake/make-sysroot.sh armhf build/sysroot-armhf; } &&
        "${prefix[@]}" cmake --preset "$preset" </dev/null &&
        "${prefix[@]}" cmake --build --preset "$preset" -j 2 </dev/null &&
        touch "$results/$preset.built"
}

# count <stage> <passed> <failed> <skipped> <seconds>
count() {
    passed=$((passed + $2))
    failed=$((failed + $3))
    summaries+=("$1: $2 passed, $3 failed, $4 skipped, $5 s")
}

# run_tests <stage> <preset> [option of ctest]...
run_tests() {
    local stage="$1" preset="$2" started="$SECONDS" report="$results/$1.xml" prefix code=0 summary good bad skipped
    shift 2
    if [ ! -e "$results/$preset.built" ]; then
        count "$stage" 0 1 0 0
        failures+=("FAILED $stage: it could not be built, see above")
        return
    fi
    read -r -a prefix <<<"$(prefix_of "$preset")"
    echo "== $stage: test"
    "${prefix[@]}" ctest --preset "$preset" "$@" --output-junit "$report" </dev/null || code=$?
    summary="$(/usr/bin/python3 tests/scripts/junit_summary.py "$report")" || summary="0 0 0"
    read -r good bad skipped <<<"${summary%%$'\n'*}"
    if [ "$((good + bad + skipped))" -eq 0 ] || { [ "$code" -ne 0 ] && [ "$bad" -eq 0 ]; }; then
        bad=$((bad + 1))
        failures+=("FAILED $stage: ctest ended with $code")
    fi
    [[ "$summary" != *$'\n'* ]] || failures+=("== $stage"$'\n'"${summary#*$'\n'}")
    count "$stage" "$good" "$bad" "$skipped" "$((SECONDS - started))"
}

build dev || true
[ ! -e "$results/dev.built" ] || touch "$results/e2e.built"
run_tests dev dev --label-exclude '^e2e$'

# Players wait most of their time, so the further stages are built beside them: by what they leave of the processors,
# so that they do not wait longer for it.
set -m
(
    chrt --idle --pid 0 "$BASHPID" 2>/dev/null || renice -n 19 "$BASHPID" >/dev/null
    for stage in "${further_stages[@]}"; do
        build "$stage" >"$results/$stage.log" 2>&1 || true
    done
) &
builder=$!
set +m
[ -z "$players" ] || run_tests e2e e2e
waited="$SECONDS"
wait "$builder"
builder=
echo "== waited $((SECONDS - waited)) s for what was built beside the players"

for stage in "${further_stages[@]}"; do
    cat "$results/$stage.log"
    run_tests "$stage" "$stage"
done

echo
[ "${#failures[@]}" -eq 0 ] || printf '%s\n' "${failures[@]}"
printf '%s\n' "${summaries[@]}"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
