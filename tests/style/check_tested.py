#!/usr/bin/env python3
"""usage: check_tested.py [<root of the sources>]

Every header of the library and of the reference host has its test: Foo.h is tested by a Foo_test.cpp, or says by
what else in a line of its own, `// Tested by tests/one, tests/another.` Prints what has none, and names of tests that
do not exist.
"""

import pathlib
import re
import sys

FOLDERS = ["support", "mediaurl", "live", "playback", "audioback", "refhost"]
NOTE = re.compile(r"^// Tested by (.*)\.$", re.MULTILINE)


def main():
    root = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]
    tests = {path.name for path in root.glob("tests/**/*_test.cpp")}
    headers = sorted(header for folder in FOLDERS for header in root.glob(f"{folder}/**/*.h"))
    faults = []
    for header in headers:
        named = [test for note in NOTE.findall(header.read_text(encoding="utf-8")) for test in note.split(", ")]
        if not named and f"{header.stem}_test.cpp" not in tests:
            faults.append(f"{header.relative_to(root)}: no {header.stem}_test.cpp, and no `// Tested by tests/….`")
        faults += [
            f"{header.relative_to(root)}: there is no {test}"
            for test in named
            if not (test.startswith("tests/") and (root / test).is_file())
        ]
    for fault in faults:
        print(fault)
    return 1 if faults or not headers else 0


sys.exit(main())
