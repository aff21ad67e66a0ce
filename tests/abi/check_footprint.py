#!/usr/bin/env python3
"""What loading the library costs a device before a host calls anything.

Usage: check_footprint.py <libovmediacontrol.so> [--most-read-only <bytes>] [--most-relocations <n>] [--most-calls <n>]
           [--most-names <n>]

  No static constructors: nothing of the library's own runs when it is loaded.
  --most-read-only    most bytes of code and read-only data, tables of the linker and of exceptions included
  --most-relocations  most words that the dynamic linker fills in when it loads the library
  --most-calls        most calls that it binds, each when it is made first
  --most-names        most names that it looks up for these
"""
import argparse
import re
import subprocess
import sys


def readelf(library, option):
    return subprocess.run(["readelf", "--wide", option, library], check=True, capture_output=True, text=True).stdout


def sections(library):
    """Name, bytes and flags of each section."""
    row = re.compile(r"^ *\[ *\d+\] (\S+) +\S+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([A-Za-z]*) ", re.M)
    return [(name, int(size, 16), flags) for name, size, flags in row.findall(readelf(library, "--sections"))]


def constructors(library, found):
    """Names of the compiler's functions that initialise what stands at file scope, and bytes of unnamed ones."""
    yield from re.findall(r" (_GLOBAL__\S*I_\S+)", readelf(library, "--symbols"))
    # The compiler's start file brings the one entry that every shared object has.
    pointer = 8 if "ELF64" in readelf(library, "--file-header") else 4
    size = sum(size for name, size, _ in found if name.startswith((".init_array", ".ctors")))
    if size > pointer:
        yield f"{size // pointer - 1} entries in .init_array beside the start file's"


def counts(library):
    """What there is of each kind that has a limit."""
    found = sections(library)
    words = re.findall(r"^[0-9a-f]+ +[0-9a-f]+ (R_\w+)", readelf(library, "--relocs"), re.M)
    calls = sum(kind.endswith("_JUMP_SLOT") for kind in words)
    return {
        "read_only": (sum(size for _, size, flags in found if "A" in flags and "W" not in flags),
                      "bytes of code and read-only data", "find out what grew (nm --size-sort -C)"),
        "relocations": (len(words) - calls, "words for the dynamic linker to fill in", "see readelf -rW"),
        "calls": (calls, "calls for the dynamic linker to bind", "see readelf -rW"),
        "names": (len(re.findall(r" UND \S", readelf(library, "--dyn-syms"))), "names for the dynamic linker to look up",
                  "see nm -DC --undefined-only"),
    }


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    for kind in ("read-only", "relocations", "calls", "names"):
        parser.add_argument(f"--most-{kind}", type=int)
    options = vars(parser.parse_args())
    library = options["library"]

    bad = False
    for name in constructors(library, sections(library)):
        print(f"runs when the library is loaded: {name}")
        bad = True
    for kind, (count, what, advice) in counts(library).items():
        max = options[f"most_{kind}"]
        print(f"{count} {what}")
        if not count and kind in ("read_only", "names"):
            print("none at all: readelf was not understood")
            bad = True
        if max is not None and count > max:
            print(f"these are more than {max}: {advice}")
            bad = True
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
