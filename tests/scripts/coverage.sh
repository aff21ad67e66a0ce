#!/usr/bin/env bash
# Builds with counters, runs the tests but not the players, and prints how many lines of each folder ran.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

cmake/install-packages.sh
cmake --preset coverage
cmake --build --preset coverage -j 2
# What ran while the tests were listed, and in earlier runs, does not count.
find build/coverage -name '*.gcda' -delete
failed=0
ctest --preset coverage || failed=$?

folders=(support mediaurl live playback audioback refhost)
gcovr -j 2 --root . "${folders[@]/#/--filter=}" --exclude-directories build/coverage/tests/deviceruntime --json-summary build/coverage/summary.json build/coverage
/usr/bin/python3 tests/scripts/coverage_by_folder.py build/coverage/summary.json
exit "$failed"
