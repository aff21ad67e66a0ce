#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests:
#   ./test.sh          everything, then all but the end-to-end tests again under the sanitizers, and the library's
#                      tests built for 32-bit ARM, under an emulator
#   ./test.sh --quick  everything once, on this machine's own processor and without sanitizers
# The last line counts over all stages: "N passed, N failed". The exit code is not 0 when anything failed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

stages=(dev asan tsan armhf armel)
case "${1:-}" in
    "") ;;
    --quick) stages=(dev) ;;
    *)
        sed -n '2,6s/^# \{0,1\}//p' test.sh >&2
        exit 2
        ;;
esac

cmake/install-packages.sh

passed=0
failed=0
summaries=()
results="$(mktemp -d)"
trap 'rm -rf "$results"' EXIT

# The sanitizers of GCC 12 need the classic layout of addresses, which some kernels randomise too far.
prefix_of() {
    if [[ "$1" == ?san ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
        echo "setarch $(uname -m) -R"
    fi
}

# attribute <file> <name>: a count from the root element of a JUnit report, 0 when there is none.
attribute() {
    local value
    value="$(sed -n "s/^[[:space:]]*$2=\"\([0-9]*\)\".*/\1/p; s/^<testsuite .*[[:space:]]$2=\"\([0-9]*\)\".*/\1/p" \
        "$1" 2>/dev/null | head -n 1)"
    echo "${value:-0}"
}

# Ends a stage that did not get as far as counting: that is one failure.
broken() {
    failed=$((failed + 1))
    summaries+=("$1: $2")
    echo "== $1: $2"
}

run_stage() {
    local stage="$1" started="$SECONDS" report="$results/$1.xml" prefix code=0 total bad skipped
    read -r -a prefix <<<"$(prefix_of "$stage")"
    echo "== $stage: configure and build"
    if ! "${prefix[@]}" cmake --preset "$stage" </dev/null; then
        broken "$stage" "configuring failed"
        return
    fi
    if ! "${prefix[@]}" cmake --build --preset "$stage" -j 2 </dev/null; then
        broken "$stage" "the build failed"
        return
    fi
    echo "== $stage: test"
    "${prefix[@]}" ctest --preset "$stage" --output-junit "$report" </dev/null || code=$?
    total="$(attribute "$report" tests)"
    bad="$(attribute "$report" failures)"
    skipped="$(($(attribute "$report" skipped) + $(attribute "$report" disabled)))"
    if [ "$total" -eq 0 ] || { [ "$code" -ne 0 ] && [ "$bad" -eq 0 ]; }; then
        broken "$stage" "the tests could not be run (ctest ended with $code)"
        return
    fi
    passed=$((passed + total - bad - skipped))
    failed=$((failed + bad))
    summaries+=("$stage: $((total - bad - skipped)) passed, $bad failed, $skipped skipped, $((SECONDS - started)) s")
}

for stage in "${stages[@]}"; do
    run_stage "$stage"
done

echo
printf '%s\n' "${summaries[@]}"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
