#!/usr/bin/env python3
"""Compiles the library's sources for a host whose operations are const only where the library asks for that.

Usage: check_plain_host.py -- <warning options…>

The headers in plainhost/ beside this script go before those of hostapi/; what is missing there is taken from here.
"""
import concurrent.futures
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FOLDERS = ("support", "mediaurl", "live", "playback", "audioback")


def compile_one(source, options):
    command = ["g++", "-std=c++14", "-I", str(HERE / "plainhost"), "-I", str(ROOT), *options, "-Werror", "-fsyntax-only", str(source)]
    run = subprocess.run(command, capture_output=True, text=True)
    return "" if run.returncode == 0 else f"{source.relative_to(ROOT)}:\n{run.stderr}"


def main():
    options = sys.argv[sys.argv.index("--") + 1:]
    sources = sorted(path for folder in FOLDERS for path in (ROOT / folder).glob("*.cpp"))
    if not sources:
        print("nothing to compile was found")
        return 1
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        failures = [result for result in pool.map(lambda source: compile_one(source, options), sources) if result]
    for failure in failures:
        print(failure)
    print(f"{len(sources)} compilations, {len(failures)} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
