#!/usr/bin/env python3
"""Checks that the reference host's folders depend on one another in one direction where they are linked, too: a function
that is declared on the spot needs no include.

Usage: check_links.py <object file of the reference host>...
Prints each name that a folder's objects take from a folder above it; the order is that of check_includes.py.
"""
import pathlib
import subprocess
import sys

from check_includes import REFHOST

# Defined in one object alone: inline functions and what comes of templates stand in many.
DEFINED = "TDBR"


def folder_of(path):
    return path.as_posix().rpartition("refhost.dir/")[2].rpartition("/")[0] or "."


def names_of(paths):
    """Yields the mangled names of objects: an object's path, the name, its kind."""
    listing = subprocess.run(["nm", "-A", "-P", *paths], check=True, capture_output=True, text=True).stdout
    for line in listing.splitlines():
        path, _, rest = line.partition(": ")
        name, kind = rest.split()[:2]
        yield pathlib.Path(path), name, kind


def main():
    defined = {}
    needed = []
    for path, name, kind in names_of(sys.argv[1:]) if sys.argv[1:] else ():
        if kind in DEFINED:
            defined[name] = folder_of(path)
        elif kind == "U":
            needed.append((path, name))
    checked = 0
    faults = []
    for path, name in needed:
        own, other = folder_of(path), defined.get(name)
        if other is None or other == own:
            continue
        checked += 1
        if REFHOST.index(other) > REFHOST.index(own):
            faults.append(f"{own}/{path.stem} needs {name}: {own} must not know {other}")
    for fault in faults:
        print(fault)
    print(f"{checked} names, {len(faults)} faults")
    return 1 if faults or not checked else 0


if __name__ == "__main__":
    sys.exit(main())
