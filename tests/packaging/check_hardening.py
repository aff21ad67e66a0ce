#!/usr/bin/env python3
"""Reads from programs and shared libraries how they were hardened when they were built.

check_hardening.py FILE...

Position-independent, tables read-only after the start, every function bound at the start, no executable stack; stack
protector, checked library calls, and on x86-64 landing pads for indirect jumps and probes of the stack's pages.
"""

import re
import subprocess
import sys


def readelf(*arguments):
    return subprocess.run(["readelf", "-W", *arguments], capture_output=True, text=True, check=True).stdout


def faults(file):
    header, segments, dynamic = readelf("-h", file), readelf("-l", file), readelf("-d", file)
    symbols = readelf("--dyn-syms", file)
    machine = re.search(r"Machine:\s+(.*)", header).group(1)
    program = "INTERP" in segments
    if not re.search(r"Type:\s+DYN", header):
        yield "is not position-independent"
    if program and not re.search(r"FLAGS_1\).*\bPIE\b", dynamic):
        yield "is no position-independent executable"
    if "GNU_RELRO" not in segments:
        yield "has tables that stay writable (no relro)"
    if not re.search(r"\((FLAGS|FLAGS_1)\).*\b(BIND_NOW|NOW)\b", dynamic):
        yield "binds functions late (no now)"
    stack = re.search(r"GNU_STACK.*\s(R\S*)\s+0x", segments)
    if not stack or "E" in stack.group(1):
        yield "has an executable stack"
    if "TEXTREL" in dynamic:
        yield "has relocations in its code"
    if "__stack_chk_fail" not in symbols:
        yield "has no stack protector"
    if not re.search(r"UND __\w+_chk(@|\s|$)", symbols, re.M):
        yield "has no checked library calls"
    if "X86-64" in machine:
        code = subprocess.run(["objdump", "-d", "--no-show-raw-insn", file], capture_output=True, text=True, check=True).stdout
        if code.count("endbr64") < 20:  # those of the C runtime are there in any case
            yield "has no landing pads (-fcf-protection)"
        if program and not re.search(r"\bor[lq]\s+\$0x0,(0x0)?\(%rsp\)", code):
            yield "does not probe the stack's pages (-fstack-clash-protection)"


def main():
    failed = False
    for file in sys.argv[1:]:
        found = list(faults(file))
        failed = failed or bool(found)
        for fault in found:
            print(f"{file} {fault}")
    return failed or len(sys.argv) < 2


sys.exit(main())
