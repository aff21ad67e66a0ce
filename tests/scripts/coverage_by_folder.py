#!/usr/bin/env python3
"""usage: coverage_by_folder.py <summary written by gcovr --json-summary>

Prints for each folder, and for all together, how many lines its tests ran, of how many. Ends with 1 when there is no
such summary, or no line in it.
"""

import collections
import json
import os.path
import sys


def main():
    try:
        with open(sys.argv[1], encoding="utf-8") as summary:
            files = json.load(summary)["files"]
    except (OSError, ValueError, KeyError) as error:
        print(f"{sys.argv[1]}: {error}", file=sys.stderr)
        return 1
    ran = collections.Counter()
    lines = collections.Counter()
    for file in files:
        for name in (os.path.dirname(file["filename"]), "all"):
            ran[name] += file["line_covered"]
            lines[name] += file["line_total"]
    if lines["all"] == 0:
        return 1
    for name in sorted(lines, key=lambda name: (name == "all", name)):
        print(f"{name:28} {ran[name]:6} of {lines[name]:6} lines  {100 * ran[name] / max(lines[name], 1):5.1f} %")
    return 0


sys.exit(main())
