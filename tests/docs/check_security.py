"""Every test that the tables of attacks and bounds name is there."""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
page = (ROOT / "docs" / "security.md").read_text()
named = re.findall(r"`(\w+_test): (\w+)`", page)
problems = []
for file, test in named:
    sources = list(ROOT.glob(f"tests/**/{file}.cpp"))
    if not sources:
        problems.append(f"no file {file}.cpp")
    elif not any(re.search(rf"^TEST(_F|_P)?\(\w+,\s*{test}\)", source.read_text(), re.M) for source in sources):
        problems.append(f"{file}.cpp has no test {test}")
for file, test in re.findall(r"`(\w+\.(?:py|sh)): (\w+)`", page):
    sources = list(ROOT.glob(f"tests/**/{file}"))
    if not sources:
        problems.append(f"no file {file}")
    elif not any(re.search(rf"^def {test}\(" if file.endswith(".py") else test, source.read_text(), re.M) for source in sources):
        problems.append(f"{file} has no test {test}")
    named.append((file, test))
if len(named) < 90:
    problems.append(f"only {len(named)} tests are named: the table is not read as it is written")
print("\n".join(problems) or f"{len(named)} tests are there")
sys.exit(bool(problems))
