#!/usr/bin/env python3
"""Compares what a shared library defines and asks for with the golden lists beside this script.

Usage: check_symbols.py <libovmediacontrol.so> [--update]

  exported.txt    what of the library's own classes a host may bind to; nothing is missing, nothing is there besides
  undefined.txt   what of the host's classes the library binds to; everything else that it asks for must be the
                  C and C++ runtime's
  device_runtime.txt  what the runtimes of devices offer of these classes; the library asks for nothing else, and it
                  defines none of them for a host to see
  vtables.txt     which operation stands in which place of its class's table of virtual operations

All of it carries the interface's version, and the library its soname.

--update writes the lists again: a change in them is a change of the binary interface.
"""
import difflib
import pathlib
import re
import subprocess
import sys

import vtables

HERE = pathlib.Path(__file__).resolve().parent
# Of the interface that the lists are of.
MAJOR = 1

# Symbols of the C and C++ runtime carry the version of the library that they were linked from.
RUNTIME = re.compile(r"@@?(GLIBC|GLIBCXX|CXXABI|GCC)_")
# What the compiler's start files ask for, if it is there.
OPTIONAL = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__cxa_finalize"}
# What linkers add to every shared object.
LINKER = {f"OVMEDIACONTROL_{MAJOR}", "_init", "_fini", "_edata", "_end", "__bss_start", "__bss_start__", "__bss_end__", "_bss_end__",
          "__end__"}
PREFIXES = ("vtable for ", "typeinfo name for ", "typeinfo for ", "non-virtual thunk to ", "virtual thunk to ")


def own_classes():
    """Names of the classes that the library's headers mark for export and its sources define, and of the templates
    that they mark.

    A class that is wholly inline leaves copies wherever it is used: which of them the library holds is the compiler's
    choice. Of the templates it has all operations for those types that its sources name.
    """
    root = HERE.parent.parent
    names = set()
    for folder in ("support", "mediaurl", "live", "playback", "audioback"):
        for header in (root / folder).glob("*.h"):
            for match in re.finditer(r"(template\s*<[^>]*>\s*)?class OV_EXPORT (\w+)", header.read_text()):
                if match.group(1) or header.with_suffix(".cpp").exists():
                    names.add(match.group(2))
    return names


def symbols(library, *options):
    out = subprocess.run(["nm", "-D", "-C", *options, library], check=True, capture_output=True, text=True).stdout
    return [line for line in out.splitlines() if line.strip()]


def plain(name):
    """A symbol's name without version, ABI tag and the long form of std::string."""
    name = re.sub(r"@@?[A-Z]\w*[.\d]*$", "", name)
    name = name.replace("[abi:cxx11]", "")
    return name.replace("std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >", "std::string")


def class_of(name):
    for prefix in PREFIXES:
        if name.startswith(prefix):
            name = name[len(prefix):]
    return re.split(r"::|[<(\[ ]", name, maxsplit=1)[0]


def exported(library, classes):
    return sorted({name for name in (plain(line.split(maxsplit=2)[2]) for line in symbols(library, "--defined-only"))
                   if class_of(name) in classes})


def leaks(library, classes):
    """The symbols that the library exports although nothing marks them for export."""
    names = {plain(line.split(maxsplit=2)[2]) for line in symbols(library, "--defined-only")}
    return sorted(name for name in names if class_of(name) not in classes and name not in LINKER)


def asked_for(library):
    """Names of what the library asks for and the C and C++ runtime does not have."""
    for line in symbols(library, "--undefined-only"):
        name = line.split(maxsplit=1)[1]
        if not RUNTIME.search(name) and name not in OPTIONAL:
            yield plain(name)


def undefined(library):
    # Which types of the host are named beside their operations is the compiler's choice.
    return sorted({name for name in asked_for(library) if not name.startswith(PREFIXES)})


def not_on_devices(library):
    """What the library asks of its host that the runtimes of devices do not have. Tables are the compiler's choice."""
    offered = set((HERE / "device_runtime.txt").read_text().splitlines())
    return sorted({name for name in asked_for(library) if not name.startswith("vtable for ")} - offered)


def host_classes():
    """Names of the classes that the host contract declares for a host to define."""
    root = HERE.parent.parent / "hostapi"
    return {match.group(1) for header in root.rglob("*.h")
            for match in re.finditer(r"class OV_HOST_API (\w+)", header.read_text())}


def strange_versions(library, classes):
    """Exported symbols without the version of the interface, or under a name that hosts would not look for."""
    version = f"@@OVMEDIACONTROL_{MAJOR}"
    for line in symbols(library, "--defined-only"):
        name = line.split(maxsplit=2)[2]
        if class_of(plain(name)) in classes and not name.endswith(version):
            yield f"{name} has no version {version}"
    dynamic = subprocess.run(["readelf", "-dW", library], check=True, capture_output=True, text=True).stdout
    if f"Library soname: [libovmediacontrol.so.{MAJOR}]" not in dynamic:
        yield f"the soname is not libovmediacontrol.so.{MAJOR}"


def readable(names):
    """Names of operations as a reader knows them; of destructors also which."""
    text = subprocess.run(["c++filt", "--no-verbose"], input="\n".join(names), check=True, capture_output=True, text=True).stdout
    which = {"D0Ev": " deleting", "D1Ev": " complete", "D2Ev": " complete"}
    return {plain(line) + which.get(name[-4:], "") for name, line in zip(names, text.splitlines())}


def tables(library, classes, golden):
    """A line for each place of each table. An operation may have several names: the golden one is taken if it is there."""
    rows = []
    for class_name, places in vtables.operations(library):
        (name,) = readable(["_ZTV" + class_name])
        if class_of(name) not in classes:
            continue
        name = name[len("vtable for "):].replace(" ", "")
        for place, symbols_there in enumerate(places):
            found = {f"{name} {place} {text}" for text in readable(sorted(symbols_there))} if symbols_there else set()
            rows.append(sorted(found & golden or found or {f"{name} {place} nothing that the library exports"})[0])
    return sorted(rows, key=lambda row: (row.split()[0], int(row.split()[1])))


def compare(name, lines, update):
    golden = HERE / name
    if update:
        golden.write_text("\n".join(lines) + "\n")
        return True
    expected = golden.read_text().splitlines()
    if expected == lines:
        return True
    print(f"{name} and the library differ (- expected, + found):")
    print("\n".join(line for line in difflib.unified_diff(expected, lines, lineterm="", n=0)
                    if not line.startswith(("---", "+++", "@@"))))
    return False


def main():
    library, update = sys.argv[1], "--update" in sys.argv[2:]
    classes = own_classes()
    results = [
        compare("exported.txt", exported(library, classes), update),
        compare("undefined.txt", undefined(library), update),
        compare("vtables.txt", tables(library, classes, set((HERE / "vtables.txt").read_text().splitlines())), update),
    ]
    strangers = [name for name in asked_for(library) if class_of(name) not in host_classes()]
    for name in strangers:
        print(f"the library asks for what neither the host contract nor the runtime has: {name}")
    missing = not_on_devices(library)
    for name in missing:
        print(f"the library asks for what no device's runtime offers: {name}")
    leaked = leaks(library, classes)
    for name in leaked:
        print(f"the library exports what nothing marks for export: {name}")
    unversioned = list(strange_versions(library, classes))
    for fault in unversioned:
        print(fault)
    return 0 if all(results) and not strangers and not missing and not leaked and not unversioned else 1


if __name__ == "__main__":
    sys.exit(main())
