#!/usr/bin/env bash
# usage: coverage_by_folder_test.sh <root of the sources>
# Files of one folder are added up, folders within it stand for themselves, and the sum of all stands last.
set -euo pipefail
by_folder="$1/tests/scripts/coverage_by_folder.py"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

cat >"$scratch/summary.json" <<'SUMMARY'
{ "files": [
    { "filename": "support/Guard.h", "line_covered": 4, "line_total": 4 },
    { "filename": "refhost/base/Log.cpp", "line_covered": 30, "line_total": 60 },
    { "filename": "refhost/base/Log.h", "line_covered": 0, "line_total": 0 },
    { "filename": "refhost/base/Clock.cpp", "line_covered": 15, "line_total": 30 },
    { "filename": "refhost/main.cpp", "line_covered": 0, "line_total": 2 } ] }
SUMMARY
diff -u --label expected --label found - <(/usr/bin/python3 "$by_folder" "$scratch/summary.json") <<'EXPECTED'
refhost                           0 of      2 lines    0.0 %
refhost/base                     45 of     90 lines   50.0 %
support                           4 of      4 lines  100.0 %
all                              49 of     96 lines   51.0 %
EXPECTED

# No summary, and one of no line, are no result.
if /usr/bin/python3 "$by_folder" "$scratch/missing.json" 2>/dev/null; then exit 1; fi
echo '{ "files": [] }' >"$scratch/empty.json"
if /usr/bin/python3 "$by_folder" "$scratch/empty.json"; then exit 1; fi
