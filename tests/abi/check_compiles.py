#!/usr/bin/env python3
"""Compiles every public header alone, and the library's sources, with each compiler and language standard.

Usage: check_compiles.py headers|sources <stamp file> -- <warning options…>

Only the compilers' judgement counts. A set of files that was found good is not judged again until a file, the options
or a compiler change; the stamp file remembers that, and ccache, where there is one, remembers each single file.
"""
import concurrent.futures
import hashlib
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LIBRARY = ("support", "mediaurl", "live", "playback", "audioback")
COMPILERS = ("g++", "clang++")
STANDARDS = ("c++14", "c++17", "c++20")
CACHE = ["ccache"] if shutil.which("ccache") else []


def public_headers():
    folders = [*LIBRARY, *(path.relative_to(ROOT) for path in sorted((ROOT / "hostapi").iterdir()) if path.is_dir())]
    return sorted(path.relative_to(ROOT) for folder in folders for path in (ROOT / folder).glob("*.h"))


def library_sources():
    return sorted(path.relative_to(ROOT) for folder in LIBRARY for path in (ROOT / folder).glob("*.cpp"))


def fingerprint(options):
    digest = hashlib.sha256(repr((options, COMPILERS, STANDARDS)).encode())
    for compiler in COMPILERS:
        digest.update(subprocess.run([compiler, "--version"], check=True, capture_output=True).stdout)
    for path in [*public_headers(), *library_sources(), pathlib.Path(__file__).resolve().relative_to(ROOT)]:
        digest.update(str(path).encode() + b"\0" + (ROOT / path).read_bytes())
    return digest.hexdigest()


def alone(path, scratch):
    """A source that holds this one and nothing else; twice, because a header must bear that."""
    if path.suffix != ".h":
        return path
    source = scratch / (str(path).replace("/", "_") + ".cpp")
    source.write_text(f'#include "{path}"\n#include "{path}"\n')
    return pathlib.Path(os.path.relpath(source, ROOT))


def compile_one(job):
    compiler, standard, path, source, options, scratch = job
    # Code is generated, although unused, because ccache remembers only that.
    command = [*CACHE, compiler, f"-std={standard}", "-I", ".", *options, "-Werror", "-fvisibility=hidden", "-c", str(source),
               "-o", str(scratch / f"{source.name}.{compiler}.{standard}.o")]
    run = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    return "" if run.returncode == 0 else f"{path} with {compiler} as {standard}:\n{run.stderr}"


def main():
    what, stamp = sys.argv[1], pathlib.Path(sys.argv[2])
    options = sys.argv[sys.argv.index("--") + 1:]
    files = {"headers": public_headers, "sources": library_sources}[what]()
    if not files:
        print("nothing to compile was found")
        return 1
    print_id = fingerprint(options)
    if stamp.exists() and stamp.read_text() == print_id:
        print(f"{len(files)} {what} unchanged since they were found good")
        return 0
    # Always the same place, because ccache knows sources by their names too.
    scratch = stamp.with_suffix(".compiled").absolute()
    scratch.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        sources = {path: alone(path, scratch) for path in files}
        jobs = [(compiler, standard, path, sources[path], options, scratch)
                for compiler in COMPILERS for standard in STANDARDS for path in files]
        failures = [result for result in pool.map(compile_one, jobs) if result]
    for failure in failures:
        print(failure)
    shutil.rmtree(scratch)
    print(f"{len(jobs)} compilations, {len(failures)} failed")
    if not failures:
        stamp.write_text(print_id)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
