#!/usr/bin/env python3
"""Compares the runtime of a device with the list of what devices offer, in both directions.

Usage: check_runtime.py <program that has the runtime> <library built with the runtime's headers>

The program shows the listed operations and no others; the library asks for all of them and for no others.
"""
import pathlib
import sys

ABI = pathlib.Path(__file__).resolve().parent.parent / "abi"
sys.path.insert(0, str(ABI))
import check_symbols  # noqa: E402


def differences(what, found, listed):
    for name in sorted(found - listed):
        yield f"{what}, though it is not listed: {name}"
    for name in sorted(listed - found):
        yield f"no longer {what}: {name}"


def main():
    program, library = sys.argv[1:]
    listed = set((ABI / "device_runtime.txt").read_text().splitlines())
    classes = {check_symbols.class_of(name) for name in listed}
    exported = {check_symbols.plain(line.split(maxsplit=2)[2]) for line in check_symbols.symbols(program, "--defined-only")}
    # Tables and types come with each class that has virtual operations, whether the library asks for them or not.
    offered = {name for name in exported if check_symbols.class_of(name) in classes
               and (name in listed or not name.startswith(check_symbols.PREFIXES))}
    asked = {name for name in check_symbols.asked_for(library) if not name.startswith("vtable for ")}
    faults = [*differences("offered by the runtime", offered, listed), *differences("asked for by the library", asked, listed)]
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
