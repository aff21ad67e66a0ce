#!/usr/bin/env python3
"""Says which functions of the library are no members of a class: there are none, file-local ones included.

Usage: check_free_functions.py <object file of the library>... -- <warning options…>

Looks at the object files as built, and at the sources compiled so that the compiler keeps what it would inline or
leave out.
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FOLDERS = ("support", "mediaurl", "live", "playback", "audioback")
KEEP = ("-O0", "-fkeep-inline-functions", "-fkeep-static-functions")

# A function's mangled name, perhaps with a suffix of the compiler's such as .cold.
FUNCTION = re.compile(r"^_Z(?!TV|TI|TS|TC|TT|GV|GR)(?:T[hvc]n?\d+_(?:n?\d+_)?)?(.*)$")
# Of the standard library and the language's runtime: namespaces and operators that it declares.
RUNTIME = re.compile(r"^(?:N[KVRO]*)?(?:St|Sa|Ss|Sb|Si|So|Sd|9__gnu_cxx|10__cxxabiv1)|^(?:nw|na|dl|da)")
LOCAL = "12_GLOBAL__N_1"


def own_classes():
    """Names of the classes that the library's and the host contract's headers declare."""
    pattern = re.compile(r"^(?:class|struct) (?:OV_\w+ )?(\w+)", re.M)
    headers = [path for folder in FOLDERS for path in (ROOT / folder).glob("*.h")] + list((ROOT / "hostapi").rglob("*.h"))
    return {name for header in headers for name in pattern.findall(header.read_text())}


def source_name(text):
    """The first name of a mangled text, without its length, and what stands behind it and its template arguments."""
    match = re.match(r"(\d+)", text)
    if not match:
        return None, text
    end = match.end() + int(match.group(1))
    rest = text[end:]
    if rest.startswith("I"):
        depth = 0
        # Arguments of templates of ours are types and values that hold no nested "E" but their own.
        for place, letter in enumerate(rest):
            depth += letter in "INXLJ" and not rest[place - 1].isdigit()
            depth -= letter == "E"
            if depth == 0:
                rest = rest[place + 1:]
                break
    return text[match.end():end], rest


def is_free(name, classes):
    """Whether a symbol is a function that is no member of a class."""
    match = FUNCTION.match(name)
    if not match:
        return False
    encoding = match.group(1)
    if encoding.startswith("Z"):
        # Something local to a function: judged with that function.
        return False
    if RUNTIME.match(encoding):
        return False
    nested = re.match(r"N[KVRO]*(.*)", encoding)
    scope = nested.group(1) if nested else encoding.lstrip("L")
    if scope.startswith(LOCAL):
        # A member of a class in an unnamed namespace has a further name behind the class's; operators have no length.
        name, rest = source_name(scope[len(LOCAL):])
        return name is None or rest.startswith("E")
    first, _ = source_name(scope)
    if first and re.match(r"_[_A-Z]", first):
        # Reserved for compilers and their libraries.
        return False
    return not nested or first not in classes


def functions(objects):
    """Names of the functions that the object files hold, as the linker knows them."""
    out = subprocess.run(["nm", "--defined-only", *objects], check=True, capture_output=True, text=True).stdout
    return {line.split()[2] for line in out.splitlines() if re.match(r"^[0-9a-f]+ [tTwWi] ", line)}


def is_unmangled(name):
    """Whether a symbol is a function of the C language. The marks in ARM's code are none, nor are the compiler's."""
    return not name.startswith(("_Z", "$", "_GLOBAL_", ".", "DW.ref."))


def compiled(scratch, options):
    """The library's sources as object files from which nothing was left out."""
    sources = sorted(path for folder in FOLDERS for path in (ROOT / folder).glob("*.cpp"))
    jobs = [(source, scratch / f"{source.parent.name}_{source.stem}.o") for source in sources]

    def compile_one(job):
        subprocess.run(["g++", "-std=c++14", "-I", str(ROOT), *KEEP, *options, "-c", str(job[0]), "-o", str(job[1])], check=True)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(compile_one, jobs))
    return [str(path) for _, path in jobs]


def main():
    split = sys.argv.index("--")
    objects, options = sys.argv[1:split], sys.argv[split + 1:]
    if not objects:
        print("no object file was given")
        return 1
    classes = own_classes()
    names = functions(objects)
    unmangled = {name for name in names if is_unmangled(name)}
    with tempfile.TemporaryDirectory() as scratch:
        # Here the C library's headers bring functions of their own.
        names |= functions(compiled(pathlib.Path(scratch), options))
    free = sorted(unmangled | {name for name in names if is_free(name, classes)})
    if free:
        print("no member of a class:")
        print(subprocess.run(["c++filt"], input="\n".join(free), check=True, capture_output=True, text=True).stdout)
    print(f"{len(names)} functions, {len(free)} of them free")
    return 1 if free or not names else 0


if __name__ == "__main__":
    sys.exit(main())
