#!/usr/bin/env bash
# usage: check_words_test.sh <check_words.py>
# The check refuses a word of each kind of place, and leaves alone what is something else.
set -euo pipefail
check="$1"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/refhost"
failed=0

# judge <path> <text>: leaves what the check says of a file with that text in `said`.
judge() {
    printf '%s\n' "$2" >"$root/$1"
    said="$(/usr/bin/python3 "$check" "$root" "$1" 2>&1)" && return 0 || return 1
}

refused() {
    if judge "$1" "$2"; then
        echo "not refused: $2" >&2
        failed=1
    fi
}

taken() {
    if ! judge "$1" "$2"; then
        printf 'refused: %s\n%s\n' "$2" "$said" >&2
        failed=1
    fi
}

refused refhost/A.h 'int keyPictures_ = 0;'
refused refhost/A.h 'int key_picture;'
refused refhost/A.h '/// The picture that is shown.'
refused refhost/A.cpp 'Log::info("no sound");'
refused refhost/A.md 'Two sounds.'
refused refhost/PictureStart.h ''
refused refhost/A.cpp 'constexpr int mostQueued = 3;'
refused refhost/A.md 'A group of pictures.'
refused refhost/A.h '/// The listener is told.'
refused refhost/A.cpp 'TEST(Track, TellsItsSize)'
refused refhost/A.cpp 'for (int round = 0; round < 2; ++round)'
taken refhost/A.md 'A frame, on a sound card, for most people.'
taken refhost/A.cpp '// at most three, the longest; two rounds, one way'
taken refhost/A.cpp 'auto value = std::round(roundTrip);'
taken refhost/A.cpp 'constexpr int atMost = maxQueued; // encoding'
exit "$failed"
