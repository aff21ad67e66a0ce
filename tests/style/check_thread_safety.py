"""Compiles the reference host with Clang's thread-safety analysis as an error; no code is made.

check_thread_safety.py CLANG SOURCE_DIR BUILD_DIR [FOLDER...]

Reads the flags from BUILD_DIR/compile_commands.json. FOLDER, such as refhost/live, limits the run to some of the
files. Fails, too, where a file uses a mutex that the analysis does not know, and where the compiler accepts code that
reads a guarded member without its mutex: then the check checks nothing.
"""
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

clang, source, build = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
folders = sys.argv[4:] or ["refhost"]

# These define the project's mutex, implement the library's, or derive from a class that asks for the standard's.
own_mutex = ["refhost/base/Mutex.h", "refhost/base/ConditionVariable.h", "refhost/base/OVMutexImpl.h", "refhost/base/OVMutex.cpp",
             "refhost/base/Log.cpp"]
unknown_mutex = re.compile(r"std::(mutex|timed_mutex|shared_mutex|condition_variable\w*)\b")

unguarded = """#include "refhost/base/Mutex.h"
struct Counter
{
    int read() { return count; }
    refhost::Mutex mutex;
    int count OV_GUARDED_BY(mutex) = 0;
};
"""


def flags_of(command):
    words = shlex.split(command)[1:]
    kept, i = [], 0
    while i < len(words):
        if words[i] == "-isystem":
            kept += words[i:i + 2]
            i += 1
        elif re.match(r"-(D|I|std|pthread)", words[i]):
            kept.append(words[i])
        i += 1
    return kept


def compile(flags, *more):
    return subprocess.run([clang, *flags, "-fsyntax-only", "-ferror-limit=0", "-Wno-everything", "-Wthread-safety", "-Werror", *more],
                          capture_output=True, text=True, cwd=build)


# Some files must not see all that others include: those are judged by themselves.
def check(flags, common, path):
    run = compile(flags, *common, path)
    return run if run.returncode == 0 else compile(flags, path)


# What many files include is parsed once: a third of the time.
def precompile(flags, texts, folder):
    uses = collections.Counter(name for text in texts for name in set(re.findall(r"^#include <([\w./+]+)>", text, re.M)))
    names = [name for name, count in uses.items() if count >= 3 and re.fullmatch(r"[a-z_]+|(gst|fmt|spdlog)/.*", name)]
    header = folder / "common.h"
    header.write_text("".join(f"#include <{name}>\n" for name in sorted(names)))
    done = subprocess.run([clang, *flags, "-Wno-everything", "-x", "c++-header", str(header), "-o", str(folder / "common.pch")], cwd=build)
    return ["-include-pch", str(folder / "common.pch")] if done.returncode == 0 else []


def main():
    commands = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = os.path.relpath(entry["file"], source)
        if any(path.startswith(folder + "/") for folder in folders):
            commands.setdefault(path, flags_of(entry["command"]))
    if not commands:
        sys.exit("no files to check")
    texts = {path: (source / path).read_text() for path in commands}
    headers = {str(header.relative_to(source)): header.read_text() for folder in folders for header in (source / folder).rglob("*.h")}
    problems = [f"{path}: uses {found.group()}: refhost/base/Mutex.h has what the analysis knows"
                for path, text in sorted({**texts, **headers}.items())
                if path not in own_mutex and (found := unknown_mutex.search(text))]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        flags = next(iter(commands.values()))
        common = precompile(flags, list(texts.values()) + list(headers.values()), folder)
        (folder / "unguarded.cpp").write_text(unguarded)
        if "reading variable 'count' requires holding mutex" not in compile(flags, str(folder / "unguarded.cpp")).stderr:
            problems.append("the compiler accepts a guarded member that is read without its mutex")
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            runs = pool.map(lambda path: check(commands[path], common, str(source / path)), commands)
            problems += sorted({run.stderr for run in runs if run.returncode != 0})
    print("\n".join(problems) or f"{len(commands)} files are right")
    sys.exit(1 if problems else 0)


main()
