#!/usr/bin/env python3
"""usage: junit_summary.py <report written by ctest --output-junit>

Prints "<passed> <failed> <skipped>" on the first line, and behind it each failed test with the end of what it said,
so that one need not look for it among thousands. Ends with 1 when there is no such report, or no test in it.
"""

import sys
import xml.etree.ElementTree

MAX_LINES = 40


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
        for line in case.findtext("system-out", "").strip().splitlines()[-MAX_LINES:]:
            print(f"    {line}")
    return 0


sys.exit(main())
