#!/usr/bin/env python3
"""Checks in which direction the folders depend on one another, by their includes.

hostapi/base <- support <- the rest of hostapi <- mediaurl <- audioback <- live <- playback <- the reference host <-
tests and benchmarks. The library itself uses nothing but the language's standard library. Inside the reference host the
folders stand in REFHOST, bottom to top; each includes only what stands below it and itself.

Usage: check_includes.py [root]
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parent.parent.parent)
ORDER = ["hostapi/base", "support", "hostapi", "mediaurl", "audioback", "live", "playback"]
# Folders of refhost/, bottom to top; "." is its top folder.
REFHOST = ["base", "threads", "service", "net", "net/tls", "net/http", "net/tunnel", "net/websocket", "media", "mp4", "rtp", "rtp/payload", "rtp/srtp", "rtp/udp", "rtp/multicast", "config", "sandbox", "access", "hooks", "capture", "ingest/client", "ingest",
           "live", "fragments", "recording", "playback", "export", "snapshot", "talkback/outputs", "talkback", "description", "rtsp/message", "rtsp/session", "rtsp/connection", "http", "doctor", "."]
# Benchmarks use the fakes of the tests.
TOP = ["refhost", "bench", "tests"]
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
# A header of the C++ standard library has neither folder nor suffix.
STANDARD = re.compile(r"^[a-z_0-9]+$")


def layer(path):
    parts = pathlib.PurePosixPath(path).parts
    if parts[:2] == ("hostapi", "base"):
        return "hostapi/base"
    return parts[0]


def allowed(layer_name):
    if layer_name in ORDER:
        return ORDER[:ORDER.index(layer_name) + 1]
    if layer_name == "refhost":
        return ORDER + ["refhost"]
    return ORDER + TOP


def refhost_faults_of(path, target):
    """Of an include from one folder of refhost/ to another."""
    own, other = (pathlib.PurePosixPath(file).relative_to("refhost").parent.as_posix() for file in (path, target))
    for folder in (own, other):
        if folder not in REFHOST:
            yield f"refhost/{folder} has no place in the order of folders"
            return
    if REFHOST.index(other) > REFHOST.index(own):
        yield f'{path} includes "{target}": {own} must not know {other}'


def faults_of(path):
    own = layer(path)
    for kind, target in INCLUDE.findall((ROOT / path).read_text()):
        if kind == "<":
            if own in ORDER and not STANDARD.match(target):
                yield f"{path} includes <{target}>, which is not of the C++ standard library"
        elif not (ROOT / target).is_file():
            if own not in ORDER:
                continue  # generated, or a tool's own
            yield f'{path} includes "{target}", which is no path from the root'
        elif layer(target) not in allowed(own):
            yield f'{path} includes "{target}": {own} must not know {layer(target)}'
        elif own == "refhost" and layer(target) == "refhost":
            yield from refhost_faults_of(path, target)


def main():
    files = sorted(path.relative_to(ROOT).as_posix() for folder in {name.split("/")[0] for name in ORDER} | set(TOP)
                   for suffix in ("h", "cpp") for path in (ROOT / folder).rglob(f"*.{suffix}"))
    faults = [fault for path in files for fault in faults_of(path)]
    for fault in faults:
        print(fault)
    print(f"{len(files)} files, {len(faults)} faults")
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
