#!/usr/bin/env bash
# usage: check_tested_test.sh <check_tested.py>
# A header is refused that has no test by its name and names none, or one that does not exist.
set -euo pipefail
check="$1"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch"/{support,refhost/base,tests/refhost/base,tests/support}

# found <expected output>...: of the check, which ends with 0 when nothing is expected
found() {
    local code=0 output
    output="$(/usr/bin/python3 "$check" "$scratch")" || code=$?
    diff -u --label expected --label found <(printf '%s\n' "$@") <(printf '%s\n' "$output")
    [ "$code" -eq "$([ -z "${1:-}" ] && echo 0 || echo 1)" ]
}

touch "$scratch"/refhost/base/Log.h "$scratch"/tests/refhost/base/Log_test.cpp
found ""
touch "$scratch"/refhost/base/Level.h
found 'refhost/base/Level.h: no Level_test.cpp, and no `// Tested by tests/….`'
printf '#pragma once\n// Tested by tests/refhost/base/Log_test.cpp, tests/support/Other_test.cpp.\n' >"$scratch"/refhost/base/Level.h
found 'refhost/base/Level.h: there is no tests/support/Other_test.cpp'
touch "$scratch"/tests/support/Other_test.cpp
found ""
printf '// Tested by refhost/base/Log.h.\n' >"$scratch"/support/Guard.h
found 'support/Guard.h: there is no refhost/base/Log.h'
rm -r "$scratch"/support "$scratch"/refhost
if /usr/bin/python3 "$check" "$scratch"; then exit 1; fi
