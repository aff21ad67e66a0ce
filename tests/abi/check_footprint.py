#!/usr/bin/env python3
"""What loading the library costs a device before a host calls anything.

Usage: check_footprint.py <libovmediacontrol.so> [--most-read-only <bytes>]

  No static constructors: nothing of the library's own runs when it is loaded.
  --most-read-only  most bytes of code and read-only data, tables of the linker and of exceptions included
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


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("--most-read-only", type=int)
    options = parser.parse_args()

    found = sections(options.library)
    bad = False
    for name in constructors(options.library, found):
        print(f"runs when the library is loaded: {name}")
        bad = True
    read_only = sum(size for _, size, flags in found if "A" in flags and "W" not in flags)
    print(f"{read_only} bytes of code and read-only data")
    if not read_only:
        print("no section was recognised")
        bad = True
    if options.most_read_only and read_only > options.most_read_only:
        print(f"these are more than {options.most_read_only}: find out what grew (nm --size-sort -C)")
        bad = True
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
