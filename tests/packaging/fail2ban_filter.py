"""What packaging/fail2ban/ovrtspd.conf finds in a log: its expressions applied as fail2ban applies them, and by
fail2ban-regex itself where it is installed."""

import pathlib
import re
import shutil
import subprocess

FILTER = pathlib.Path(__file__).parents[2] / "packaging" / "fail2ban" / "ovrtspd.conf"
# fail2ban takes the date that it finds out of the line.
DATE = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d+[+-]\d\d:\d\d")
ADDRESS = r"(?P<address>[0-9.]+|[0-9a-fA-F:.]+)"


def expressions():
    lines = FILTER.read_text().splitlines()
    start = next(i for i, line in enumerate(lines) if line.startswith("failregex = "))
    found = [lines[start].removeprefix("failregex = ")]
    for line in lines[start + 1:]:
        if not line.startswith(" "):
            break
        found.append(line.strip())
    assert len(found) == 4 and all(expression.startswith("^") for expression in found), found
    return [re.compile(expression.replace("<ADDR>", ADDRESS)) for expression in found]


def matches(log):
    """The addresses that the filter finds in the lines of `log`, one for each line that it matches."""
    found = []
    for line in log.splitlines():
        rest = DATE.sub("", line, count=1)
        hits = [hit for hit in (expression.search(rest) for expression in expressions()) if hit]
        assert len(hits) <= 1, f"more than one expression: {line}"
        found += [hit.group("address") for hit in hits]
    return found


def counted_by_fail2ban(log_file):
    """How many lines of a file fail2ban-regex itself matches; None where it is not installed."""
    program = shutil.which("fail2ban-regex")
    if program is None:
        return None
    run = subprocess.run([program, str(log_file), str(FILTER)], capture_output=True, text=True, timeout=120)
    return int(re.search(r"^Lines: \d+ lines, \d+ ignored, (\d+) matched", run.stdout, re.M).group(1))
