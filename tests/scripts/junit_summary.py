#!/usr/bin/env python3
"""usage: junit_summary.py <report written by ctest --output-junit>

Prints "<passed> <failed> <skipped>" on the first line, and behind it each failed test with the end of what it said
and, before that, what failed in it, so that one need not look for it among thousands. Ends with 1 when there is no
such report, or no test in it.
"""

import re
import sys
import xml.etree.ElementTree

MAX_LINES = 40
# What GoogleTest, the sanitizers and Python say where something fails; the next lines belong to it.
FAILURE = re.compile(r": Failure$|Sanitizer: |runtime error: |^Traceback |^E   ")
LINES_OF_FAILURE = 8


def excerpt(lines):
    """\returns the last lines, behind the failures that stand before them"""
    early = lines[:-MAX_LINES]
    found = set()
    for number, line in enumerate(early):
        if FAILURE.search(line):
            found.update(range(number, min(number + LINES_OF_FAILURE, len(early))))
    return [early[number] for number in sorted(found)[:MAX_LINES]] + lines[-MAX_LINES:]


def has_failed(case):
    if case.get("status") != "notrun":
        return case.get("status") == "fail"
    # The report has a test whose program is missing among the skipped ones, although ctest fails for it.
    return not case.find("skipped").get("message").startswith("SKIP_")


def main():
    try:
        suite = xml.etree.ElementTree.parse(sys.argv[1]).getroot()
    except (OSError, xml.etree.ElementTree.ParseError) as error:
        print(f"{sys.argv[1]}: {error}", file=sys.stderr)
        return 1
    cases = suite.findall("testcase")
    if not cases:
        return 1
    failed = [case for case in cases if has_failed(case)]
    skipped = [case for case in cases if case.get("status") != "run" and case not in failed]
    print(len(cases) - len(failed) - len(skipped), len(failed), len(skipped))
    for case in failed:
        print(f"FAILED {case.get('name')}")
        for line in excerpt(case.findtext("system-out", "").strip().splitlines()):
            print(f"    {line}")
    return 0


sys.exit(main())
