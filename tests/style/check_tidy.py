#!/usr/bin/python3
"""Runs clang-tidy over the project's source files, several at a time, and remembers which of them passed.

check_tidy.py CLANG_TIDY SOURCE_DIR BUILD_DIR [PATH...]

Reads how each file is compiled from BUILD_DIR/compile_commands.json; of several commands for one file, the first. PATH,
such as tests/live or a file, limits the run to paths that start with it.

A pass is remembered under a digest of all that it depends on: clang-tidy, .clang-tidy, the file's command, the file and
the project's headers that it includes, the installed packages with system headers, and this script. A finding is never
remembered. The memory is $XDG_CACHE_HOME/ovmediacontrol-tidy (or below ~/.cache): an empty file for each pass, of which
the oldest are removed.
"""
import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import time

MAX_PASSES = 8192  # some ten states of the whole project
INCLUDE = re.compile(r"^[ \t]*#[ \t]*include(?:_next)?[ \t]*(.*)", re.M)
INCLUDED_NAME = re.compile(r'([<"])([^>"]+)[>"]')
PACKAGES_WITH_HEADERS = re.compile(r"^(\S*-dev\S*|lib(stdc\+\+|gcc|clang|llvm)\S*|clang\S*|googletest) ", re.I)
FINDING = re.compile(r"(?m)^(?=\S[^\n]*:\d+:\d+: (?:warning|error):)")


def digest(*texts):
    sha = hashlib.sha256()
    for text in texts:
        data = text if isinstance(text, bytes) else text.encode()
        sha.update(b"%d:" % len(data))
        sha.update(data)
    return sha.hexdigest()


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


class Tree:
    """The project's files, each read once."""

    def __init__(self, source, build):
        self.source, self.build = source, build

    @functools.lru_cache(maxsize=None)
    def text(self, path):
        return pathlib.Path(path).read_bytes()

    @functools.lru_cache(maxsize=None)
    def is_file(self, path):
        return os.path.isfile(path)

    def relative(self, text):
        """`text` without the places of the two folders, so that every copy of the project shares what is remembered."""
        return text.replace(str(self.build), "BUILD").replace(str(self.source), "SOURCE")

    @functools.lru_cache(maxsize=None)
    def includes(self, path):
        """Pairs of (is quoted, name); None for an include that a macro names."""
        found = []
        for rest in INCLUDE.findall(self.text(path).decode(errors="replace")):
            name = INCLUDED_NAME.match(rest)
            found.append((name[1] == '"', name[2]) if name else None)
        return tuple(found)

    def resolve(self, includer, quoted, name, folders):
        for folder in ([os.path.dirname(includer)] if quoted else []) + folders:
            path = os.path.normpath(os.path.join(folder, name))
            if path.startswith((str(self.source) + "/", str(self.build) + "/")) and self.is_file(path):
                return path
        return None

    def headers(self, path, folders):
        """The project's headers that `path` includes, also through others and whatever #if says; None where unknown."""
        found, waiting = set(), [path]
        while waiting:
            includer = waiting.pop()
            for include in self.includes(includer):
                if include is None:
                    return None
                header = self.resolve(includer, *include, folders)
                if header and header not in found:
                    found.add(header)
                    waiting.append(header)
        return sorted(found)


def arguments_of(entry):
    """What the front end is given; warnings of the compiler and what is made of the code do not matter here."""
    words, kept, skip = shlex.split(entry["command"])[1:], [], False
    for word in words:
        if skip or word in ("-o", "-MF", "-MT", "-MQ"):
            skip = not skip
        elif word != entry["file"] and not re.match(r"-([cgMW]|fanalyzer)", word):
            kept.append(word)
    return kept


def folders_of(arguments, directory):
    folders = []
    for i, word in enumerate(arguments):
        flag = re.match(r"-(I|isystem|iquote)(.*)", word)
        if flag:
            folders.append(os.path.join(directory, flag[2] or arguments[i + 1]))
    return folders


class Memory:
    """The digests of what passed. Without a folder to write to, everything is checked each time."""

    def __init__(self):
        base = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
        self.folder = pathlib.Path(base) / "ovmediacontrol-tidy"

    def holds(self, key):
        try:
            os.utime(self.folder / key)
            return True
        except OSError:
            return False

    def add(self, key):
        try:
            self.folder.mkdir(parents=True, exist_ok=True)
            (self.folder / key).touch()
        except OSError:
            pass

    def remove_oldest(self):
        try:
            passes = sorted(os.scandir(self.folder), key=lambda entry: entry.stat().st_mtime, reverse=True)
            for entry in passes[MAX_PASSES:]:
                os.unlink(entry.path)
        except OSError:
            pass


class Check:
    def __init__(self, clang_tidy, tree):
        self.clang_tidy, self.tree, self.memory = clang_tidy, tree, Memory()
        self.started = time.time()  # what is edited after this may not be what was read
        tool = os.stat(os.path.realpath(shutil.which(clang_tidy) or clang_tidy))
        try:
            packages = "".join(line for line in output_of("dpkg-query", "-W", "-f", "${Package} ${Version}\n").splitlines(True)
                               if PACKAGES_WITH_HEADERS.match(line))
        except (OSError, subprocess.CalledProcessError):
            packages = None  # then nothing is remembered
        self.common = packages and digest(pathlib.Path(__file__).read_bytes(), output_of(clang_tidy, "--version"),
                                          f"{tool.st_size} {tool.st_mtime_ns}", packages)

    def configuration(self, path):
        """All .clang-tidy files from the file's folder up to the project's."""
        files = [folder / ".clang-tidy" for folder in pathlib.Path(path).parents if folder.is_relative_to(self.tree.source)]
        return [text for file in files if self.tree.is_file(file) for text in (self.tree.relative(str(file)), self.tree.text(file))]

    def key(self, entry, arguments, headers):
        if not self.common or headers is None:
            return None
        contents = [text for path in [entry["file"], *headers] for text in (self.tree.relative(path), self.tree.text(path))]
        return digest(self.common, *self.configuration(entry["file"]), self.tree.relative("\0".join(arguments)), *contents)

    def run(self, entry):
        """None for what has passed before, else what clang-tidy found, which is empty where all is well."""
        arguments = arguments_of(entry)
        headers = self.tree.headers(entry["file"], folders_of(arguments, entry["directory"]))
        key = self.key(entry, arguments, headers)
        if key and self.memory.holds(key):
            return None
        done = subprocess.run([self.clang_tidy, "--quiet", entry["file"], "--", *arguments], capture_output=True, text=True,
                              cwd=entry["directory"])
        if done.returncode == 0 and not FINDING.search(done.stdout):
            if key and all(os.stat(path).st_mtime < self.started for path in [entry["file"], *headers]):
                self.memory.add(key)
            return ""
        return done.stdout if FINDING.search(done.stdout) else f"{entry['file']}:1:1: error: clang-tidy failed\n{done.stderr}"


def main():
    clang_tidy, source, build = sys.argv[1], pathlib.Path(sys.argv[2]).resolve(), pathlib.Path(sys.argv[3]).resolve()
    limits = tuple(sys.argv[4:])
    tree, entries = Tree(source, build), {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = os.path.relpath(entry["file"], source)
        built = pathlib.Path(entry["file"]).is_relative_to(build)
        if not built and not path.startswith("../") and (not limits or path.startswith(limits)):
            entries.setdefault(path, entry)
    if not entries:
        sys.exit("no files to check")
    check, started = Check(clang_tidy, tree), time.monotonic()
    # The largest first: they take longest, and none is left alone at the end.
    order = sorted(entries.values(), key=lambda entry: -len(tree.text(entry["file"])))
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        results = list(pool.map(check.run, order))
    check.memory.remove_oldest()
    findings = sorted({finding for result in results if result for finding in FINDING.split(result) if finding.strip()})
    print("".join(findings).replace(f"{source}/", ""), end="")
    known = results.count(None)
    print(f"{len(entries)} files, {len(findings)} findings; {len(entries) - known} checked in {time.monotonic() - started:.0f} s, "
          f"{known} known to pass")
    sys.exit(1 if findings else 0)


main()
