#!/usr/bin/env python3
"""Measures what recording cameras that are read over RTSP costs, beside `ffmpeg -c copy` processes with the same input.

    bench/record_cameras.py --build build/release [--cameras 1,16,64] [--rounds 3] [--seconds 20]

rtsp_origin plays the cameras: 640x360, 25 frames a second, a key frame every two seconds, 1 Mbit/s, over interleaved
TCP. Everything is recorded to a folder of its own on a disk in memory, which is removed. Rounds are interleaved:
ovrtspd, then ffmpeg, then the next number of cameras; the table has the medians. Processor time is what the scheduler
counted for all threads of the processes, without the origin's, which is printed beside it. Frames are counted in the
files: lost is what misses between a camera's first frame and its last one.
"""

import argparse
import datetime
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from cameras import Origin, Use, add_arguments, circumstances, end_all, film, wait_until

FRAMES_A_SECOND = 25
SERVER = """
port = 0
log-level = "warning"
[recording]
directory = "{directory}"
segment = {segment}
"""
CAMERA = """
[[camera]]
id = {number}
[[camera.stream]]
id = 0
source = "{source}"
location = "rtsp://127.0.0.1:{port}/camera/{number}"
audio = "{audio}"
record = true
"""


def syscalls(processes, seconds):
    """System calls a second, or None where perf may not count them."""
    pids = ",".join(str(process.pid) for process in processes)
    counted = subprocess.run(["perf", "stat", "-x", ",", "-e", "raw_syscalls:sys_enter", "-p", pids, "sleep",
                              str(seconds)], capture_output=True, text=True).stderr
    found = re.search(r"^(\d+),", counted, re.MULTILINE)
    return int(found.group(1)) / seconds if found else None


class Matroska:
    """Times of the blocks of a file's first track, milliseconds, in the order of the file."""

    MASTERS = {0x18538067, 0x1F43B675, 0xA0}  # Segment, Cluster, BlockGroup
    TIMESTAMP = 0xE7
    BLOCKS = {0xA3, 0xA1}  # SimpleBlock, Block

    def __init__(self, path):
        self.data = path.read_bytes()
        self.times = []
        self.cluster = 0
        place = 0
        while place < len(self.data):
            place = self.element(place)

    def number(self, place, keep_marker):
        first = self.data[place]
        length = 9 - first.bit_length()
        value = int.from_bytes(self.data[place:place + length], "big")
        return value if keep_marker else value & ((1 << 7 * length) - 1), place + length

    def element(self, place):
        try:
            kind, place = self.number(place, True)
            size, content = self.number(place, False)
        except IndexError:
            return len(self.data)
        if kind in self.MASTERS:
            return content
        body = self.data[content:content + min(size, 16)]
        if kind == self.TIMESTAMP:
            self.cluster = int.from_bytes(body[:size], "big")
        elif kind in self.BLOCKS and body and body[0] == 0x81:
            self.times.append(self.cluster + int.from_bytes(body[1:3], "big", signed=True))
        return content + size


def lost_frames(times):
    """Of one camera: times of its frames in milliseconds, in order. Returns how many there are and how many miss."""
    if not times:
        return 0, 0
    expected = round((times[-1] - times[0]) * FRAMES_A_SECOND / 1000) + 1
    return len(times), max(0, expected - len(times))


class Ovrtspd:
    def __init__(self, arguments, folder, origin, cameras):
        config = folder / "ovrtspd.toml"
        self.directory = folder / "recordings"
        text = SERVER.format(directory=self.directory, segment=arguments.segment)
        text += "".join(CAMERA.format(number=number, port=origin.port, audio=arguments.audio, source=arguments.source)
                        for number in range(1, cameras + 1))
        config.write_text(text)
        self.log = open(folder / "log", "wb")
        self.processes = [subprocess.Popen([arguments.build / "ovrtspd", "-c", config], stdout=subprocess.DEVNULL,
                                           stderr=self.log)]

    def recorded(self):
        """Cameras of which something is on the disk."""
        return {path.parent.parent.name for path in self.directory.rglob("*.mkv") if path.stat().st_size > 1000}

    def frames(self):
        found = {}
        for path in sorted(self.directory.rglob("*.mkv")):
            begin = datetime.datetime.strptime(path.stem, "%Y%m%dT%H%M%S.%fZ").replace(tzinfo=datetime.timezone.utc)
            times = found.setdefault(path.parent.parent.name, [])
            times += [begin.timestamp() * 1000 + at for at in Matroska(path).times]
        return list(found.values())


class Ffmpeg:
    def __init__(self, arguments, folder, origin, cameras):
        self.directory = folder
        self.log = open(folder / "log", "wb")
        self.processes = []
        for number in range(1, cameras + 1):
            command = ["ffmpeg", "-v", "error", "-nostdin", "-rtsp_transport", "tcp", "-i",
                       f"rtsp://127.0.0.1:{origin.port}/camera/{number}", "-c", "copy", folder / f"{number}.mkv"]
            self.processes.append(subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=self.log))

    def recorded(self):
        return {path.stem for path in self.directory.glob("*.mkv") if path.stat().st_size > 1000}

    def frames(self):
        return [Matroska(path).times for path in self.directory.glob("*.mkv")]


def measure(recorder, arguments, cameras):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="record-cameras-", dir=arguments.disk))
    origin = Origin(arguments, folder, cameras)
    running = None
    try:
        started = time.monotonic()
        running = recorder(arguments, folder, origin, cameras)
        wait_until(lambda: len(running.recorded()) == cameras, 60 + cameras, "not every camera is recorded")
        up = time.monotonic() - started
        time.sleep(arguments.warm_up)
        before, origin_before = Use(running.processes), Use([origin.process])
        time.sleep(arguments.seconds)
        after, origin_after = Use(running.processes), Use([origin.process])
        calls = syscalls(running.processes, 4) if arguments.syscalls else None
        ending, killed = end_all(running.processes)
        sent = origin.end()
        frames = [lost_frames(times) for times in running.frames()]
        wall = after.wall - before.wall
        return {
            "core": 100 * (after.cpu - before.cpu) / wall / cameras,
            "switches": (after.switches - before.switches) / wall / cameras,
            "calls": calls / cameras if calls else None,
            "threads": after.threads,
            "resident": after.resident / 1048576,
            "frames": sum(count for count, _ in frames),
            "lost": sum(lost for _, lost in frames),
            "recorded": len(frames),
            "origin": 100 * (origin_after.cpu - origin_before.cpu) / (origin_after.wall - origin_before.wall) / cameras,
            "late": sent["late"], "dropped": sent["dropped"], "up": up, "ending": ending, "killed": killed,
        }
    finally:
        if running:
            end_all([process for process in running.processes if process.poll() is None])
        origin.kill()
        if running:
            log = (folder / "log").read_text(errors="replace").splitlines()
            for line in log[:5]:
                print(f"    {recorder.__name__.lower()}: {line}", file=sys.stderr)
        shutil.rmtree(folder)


def row(name, cameras, results, base):
    def median(key):
        values = [result[key] for result in results if result[key] is not None]
        return statistics.median(values) if values else None

    def text(value, digits):
        return "–" if value is None else f"{value:.{digits}f}"

    cores = sorted(result["core"] for result in results)
    more = (median("resident") - base) / (cameras - 1) if base is not None and cameras > 1 else None
    print(f"| {cameras} | {name} | {text(median('core'), 3)} ({text(cores[0], 3)} to {text(cores[-1], 3)}) "
          f"| {text(median('threads'), 0)} | {text(median('resident'), 1)} | {text(more, 2)} "
          f"| {text(median('switches'), 0)} | {text(median('calls'), 0)} "
          f"| {sum(result['lost'] for result in results)} of {sum(result['frames'] for result in results)} "
          f"| {text(median('up'), 1)} | {text(median('origin'), 3)} |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    add_arguments(parser, "how long to measure each time", "the last camera's first file")
    parser.add_argument("--segment", type=int, default=10, help="seconds of ovrtspd's segments")
    parser.add_argument("--audio", choices=["none", "pcmu"], default="none")
    parser.add_argument("--disk", default="/dev/shm", help="where the folder for the recordings is made")
    parser.add_argument("--recorders", default="ovrtspd,ffmpeg")
    parser.add_argument("--syscalls", action="store_true", help="count system calls, with perf, after the measurement")
    arguments = parser.parse_args()
    recorders = [{"ovrtspd": Ovrtspd, "ffmpeg": Ffmpeg}[name] for name in arguments.recorders.split(",")]
    numbers = [int(number) for number in arguments.cameras.split(",")]
    results = {(number, recorder): [] for number in numbers for recorder in recorders}
    load = os.getloadavg()[0]
    with film(arguments):
        for _ in range(arguments.rounds):
            for number in numbers:
                for recorder in recorders:
                    result = measure(recorder, arguments, number)
                    results[number, recorder].append(result)
                    print(f"    {number} {recorder.__name__.lower()}: {json.dumps(result)}", file=sys.stderr, flush=True)
    print(circumstances(arguments, load))
    print("\n| cameras | recorder | % of a core a camera | threads | memory, MiB | MiB a further camera "
          "| context switches a camera and second | system calls a camera and second | frames lost "
          "| all recorded after, s | origin, % of a core a camera |\n|---|---|---|---|---|---|---|---|---|---|---|")
    for number in numbers:
        for recorder in recorders:
            of_one = results.get((1, recorder))
            base = statistics.median(result["resident"] for result in of_one) if of_one else None
            row(recorder.__name__.lower(), number, results[number, recorder], base)
    if arguments.json:
        arguments.json.write_text(json.dumps([[number, recorder.__name__.lower(), found] for (number, recorder), found
                                              in results.items()], indent=1))
    wrong = [result for found in results.values() for result in found if result["lost"] or result["killed"]]
    return 1 if wrong else 0


if __name__ == "__main__":
    raise SystemExit(main())
