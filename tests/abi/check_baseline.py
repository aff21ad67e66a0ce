#!/usr/bin/env python3
"""Compares the binary interface of the library with the one that hosts were built against (libabigail).

Usage: check_baseline.py <architecture> <scratch folder> [--source <folder>] [--toolchain <file>] [--update]

Builds the library with debugging information, reads its interface from that, and compares it with
baseline/<architecture>.abi beside this script. --update writes the baseline again: after an addition to the
interface, or together with a new soname.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FOLDERS = ("support", "mediaurl", "audioback", "live", "playback", "hostapi")
# Bits of abidiff's exit code.
FAILED, MISUSED, INCOMPATIBLE = 1, 2, 8
# A removal or a change in abidiff's summary; additions alone harm nobody, unless a table grew that hosts fill.
BROKEN = re.compile(r"changes summary: .*\b[1-9]\d* (Removed|Changed)|adds a new entry to the vtable")
# What abidiff says of each kind of change, and what that does to a host.
HARM = (
    (r"vtable of class (\w+)",
     "It calls other operations than it means, because their places changed in the table of virtual operations of"),
    (r"'([^']+)' offset changed from|'([^']+)', at offset \d+ \(in bits\)",
     "It reads and writes other memory than it means, because these fields moved, came or went:"),
    (r"\[D\] '(?:method|function|variable) ([^']+)'",
     "It does not load, or ends at the first call, because these are gone:"),
)


def build(source, scratch, toolchain):
    options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-g -O0", "-DOV_BUILD_REFHOST=OFF", "-DOV_BUILD_TESTS=OFF",
               "-DOV_BUILD_BENCH=OFF"]
    if toolchain:
        options.append(f"-DCMAKE_TOOLCHAIN_FILE={toolchain}")
    environment = dict(os.environ, CMAKE_CXX_COMPILER_LAUNCHER="ccache", CMAKE_C_COMPILER_LAUNCHER="ccache")
    for command in (["cmake", "-S", str(source), "-B", str(scratch), "-G", "Ninja", *options],
                    ["cmake", "--build", str(scratch), "-j", "2", "--target", "ovmediacontrol"]):
        done = subprocess.run(command, capture_output=True, text=True, env=environment)
        if done.returncode != 0:
            sys.exit(f"{' '.join(command)}\n{done.stdout}{done.stderr}")
    return scratch / "libovmediacontrol.so"


def interface(library, source, out):
    command = ["abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--drop-private-types",
               "--exported-interfaces-only", "--out-file", str(out)]
    for folder in FOLDERS:
        command += ["--headers-dir", str(source / folder)]
    subprocess.run([*command, str(library)], check=True)
    # Where a tree stands is nobody's business.
    out.write_text(re.sub(rf"path='[^']*?/({'|'.join(FOLDERS)})/", r"path='../../\1/", out.read_text()))


def harm(report):
    """What a change does to hosts, in plain words."""
    print("A host that was built against the interface of before would break:")
    said = False
    for pattern, consequence in HARM:
        names = dict.fromkeys(next(filter(None, match.groups())) for match in re.finditer(pattern, report))
        if names:
            print(f"- {consequence}\n    " + "\n    ".join(names))
            said = True
    if not said:
        print("- It passes and expects other types than the library does; the report above names them.")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("architecture")
    parser.add_argument("scratch", type=pathlib.Path)
    parser.add_argument("--source", type=pathlib.Path, default=ROOT)
    parser.add_argument("--toolchain")
    parser.add_argument("--update", action="store_true")
    arguments = parser.parse_args()

    baseline = HERE / "baseline" / f"{arguments.architecture}.abi"
    library = build(arguments.source, arguments.scratch, arguments.toolchain)
    if arguments.update:
        baseline.parent.mkdir(exist_ok=True)
        interface(library, arguments.source, baseline)
        return 0
    found = arguments.scratch / "found.abi"
    interface(library, arguments.source, found)
    diff = subprocess.run(["abidiff", "--no-show-locs", str(baseline), str(found)], capture_output=True, text=True)
    if diff.returncode == 0:
        return 0
    print(diff.stdout + diff.stderr)
    if diff.returncode & (FAILED | MISUSED):
        print("The interfaces could not be compared.")
    elif diff.returncode & INCOMPATIBLE or BROKEN.search(diff.stdout):
        harm(diff.stdout)
        print("Take the change back. Or, when it is meant, give the library a new soname, so that such hosts keep the old\n"
              "library: raise the major version in CMakeLists.txt, and write the baselines again with --update.")
    else:
        print("The interface grew; hosts that stand go on working. Write the baseline again with --update.")
    return 1


if __name__ == "__main__":
    sys.exit(main())
