"""check_words.py ROOT [FILE...]: refuses the words of words.txt in the project's names, comments and documents.

Identifiers count by their parts: `keyPictures_` holds "key", "pictures". Without FILEs, all that git knows is read."""

import pathlib
import re
import subprocess
import sys

FOLDERS = ("refhost/", "tests/", "bench/", "docs/", "examples/", "hostapi/", "support/", "mediaurl/", "live/", "playback/",
           "audioback/")
# What others name or wrote, what earlier versions wrote, and this check.
LEFT_OUT = re.compile(r"tests/(fuzz/corpus|style/words|style/check_words|abi/.*\.txt)|\.png$")
PARTS = re.compile(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|[0-9]+|[^\w\s]+")
COMMENT = {".cpp": r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"", ".h": r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\""}


def parts(text):
    """`text` in lower case with a space between all words, also those inside identifiers, and around marks."""
    return " ".join(part.lower() for part in PARTS.findall(text))


class Word:
    def __init__(self, word, instead, exceptions):
        self.word, self.instead = word, instead
        self.exceptions = [parts(e) for e in exceptions.split(",") if e.strip()]
        self.start = word.split()[0]
        self.pattern = re.compile(rf"\b{word}(s|es|ed|ing)?\b")

    def found_in(self, words):
        for exception in self.exceptions:
            words = re.sub(rf"(?<!\w){re.escape(exception)}(?!\w)", "", words)
        return self.pattern.search(words)

    def lines_of(self, lines, lower):
        """The numbers of the lines that hold it. Only lines that may are taken apart: `lower` is the text in lower case."""
        if self.start not in lower:
            return
        for number, line in enumerate(lower.split("\n"), 1):
            if self.start in line and self.found_in(parts(lines[number - 1])):
                yield number


def read_words(path):
    """The words that are refused everywhere, and those that are refused in identifiers alone."""
    lists, current = ([], []), 0
    for line in path.read_text().splitlines():
        if "identifiers alone" in line:
            current = 1
        if line.strip() and not line.startswith("#"):
            lists[current].append(Word(*(field.strip() for field in line.split("|"))))
    return lists


def code_of(path, text):
    """The text without comments and strings, its lines kept."""
    pattern = COMMENT.get(path.suffix)
    return re.sub(pattern, lambda match: "\n" * match.group().count("\n"), text, flags=re.S) if pattern else ""


def faults(root, name, everywhere, identifiers):
    path = root / name
    for word in everywhere + identifiers:
        if word.found_in(parts(path.stem)):
            yield f"{name}: its name holds \"{word.word}\": say {word.instead}"
    try:
        text = path.read_text()
    except UnicodeDecodeError:
        return
    for words, text in ((everywhere, text), (identifiers, code_of(path, text))):
        lines, lower = text.split("\n"), text.lower()
        for word in words:
            for number in word.lines_of(lines, lower):
                yield f"{name}:{number}: \"{word.word}\": say {word.instead}"


def main():
    root = pathlib.Path(sys.argv[1])
    names = sys.argv[2:] or [
        name for name in subprocess.run(["git", "-C", root, "ls-files"], capture_output=True, text=True,
                                        check=True).stdout.splitlines()
        if (name.startswith(FOLDERS) or name.endswith(".md")) and (root / name).is_file()]
    everywhere, identifiers = read_words(pathlib.Path(__file__).with_name("words.txt"))
    count = 0
    for name in names:
        if not LEFT_OUT.search(name):
            for fault in faults(root, name, everywhere, identifiers):
                print(fault)
                count += 1
    sys.exit(f"{count} words of the dialect" if count else 0)


main()
