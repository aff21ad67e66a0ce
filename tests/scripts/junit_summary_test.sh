#!/usr/bin/env bash
# usage: junit_summary_test.sh <root of the sources> <ctest>
# What became of tests that pass, fail, do not end, are skipped, or have no program is counted as ctest judges it.
set -euo pipefail
summary="$1/tests/scripts/junit_summary.py"
ctest="$2"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

cat >CTestTestfile.cmake <<'TESTS'
add_test(passes true)
add_test(fails sh -c "echo '<one> & \"two\"'; exit 1")
add_test(does_not_end sleep 9)
set_tests_properties(does_not_end PROPERTIES TIMEOUT 0.1)
add_test(is_skipped sh -c "exit 77")
set_tests_properties(is_skipped PROPERTIES SKIP_RETURN_CODE 77)
add_test(has_no_program ./missing)
add_test(fails_early sh -c "echo first; echo 'a.cpp:7: Failure'; echo 'it was 3'; seq 100; exit 1")
TESTS
"$ctest" --output-junit report.xml >/dev/null 2>&1 && exit 1
found="$(/usr/bin/python3 "$summary" report.xml)"
diff -u --label expected --label found - <(echo "$found") <<EXPECTED
1 4 1
FAILED fails
    <one> & "two"
FAILED does_not_end
FAILED has_no_program
    Unable to find executable: ./missing
FAILED fails_early
    a.cpp:7: Failure
    it was 3
$(seq 1 6 | sed 's/^/    /')
$(seq 61 100 | sed 's/^/    /')
EXPECTED

# No report, and a report of no test, are no result.
if /usr/bin/python3 "$summary" missing.xml 2>/dev/null; then exit 1; fi
echo '<testsuite tests="0"/>' >empty.xml
if /usr/bin/python3 "$summary" empty.xml; then exit 1; fi
