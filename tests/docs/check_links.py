"""Every relative link of the documentation leads to a file, and every anchor to a heading."""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])


def anchors(text):
    headings = re.findall(r"^#+ (.*)$", text, re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def broken(page):
    text = re.sub(r"```.*?```", "", page.read_text(), flags=re.S)
    for link in re.findall(r"\]\(([^)\s]+)\)", text):
        if re.match(r"[a-z]+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = (page.parent / path) if path else page
        if not target.exists():
            yield f"{page}: no file {link}"
        elif anchor and anchor not in anchors(target.read_text()):
            yield f"{page}: no heading {link}"


pages = [*ROOT.glob("*.md"), *ROOT.glob("docs/**/*.md"), *ROOT.glob("bench/**/*.md")]
problems = [problem for page in pages for problem in broken(page)]
print("\n".join(problems) or f"{len(pages)} pages are whole")
sys.exit(1 if problems or not pages else 0)
