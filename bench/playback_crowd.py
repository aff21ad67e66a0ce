#!/usr/bin/env python3
"""Measures what many playback sessions at once cost ovrtspd, and whether their frames come in time.

    bench/playback_crowd.py --build build/release [--cameras 64] [--sessions 1,100,1000] [--rounds 3] [--seconds 20]

First ovrtspd records cameras that rtsp_origin plays (640x360, 25 frames a second, a key frame every two seconds, 1 Mbit/s)
to a folder of its own on a disk in memory, which is removed. Then it is started again and rtsp_load plays the recordings
over TCP in real time, each session another camera and second, spread evenly. A frame is late by its timestamp, against
the frame of its session that came earliest. Server and clients share the machine's cores.
"""

import argparse
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

from cameras import Origin, circumstances, end_all, make_video, wait_until
from record_cameras import Ovrtspd

SERVER = """
port = {port}
log-level = "warning"
[limits]
connections-per-address = 4096
sessions-per-address = 4096
[recording]
directory = "{directory}"
max-size = 0
"""
CAMERA = """
[[camera]]
id = {number}
[[camera.stream]]
id = 0
"""
OPENING = 15  # seconds of a recording that may pass until every session plays


def record(arguments, folder):
    """Returns the directory of the recordings."""
    origin = Origin(arguments, folder, arguments.cameras)
    running = Ovrtspd(arguments, folder, origin, arguments.cameras)
    try:
        wait_until(lambda: len(running.recorded()) == arguments.cameras, 60 + arguments.cameras,
                                  "not every camera is recorded")
        time.sleep(arguments.length)
    finally:
        end_all(running.processes)
        origin.end()
    return running.directory


class Server:
    def __init__(self, arguments, folder, directory):
        config = folder / "playing.toml"
        config.write_text(SERVER.format(port=arguments.port, directory=directory) +
                          "".join(CAMERA.format(number=number) for number in range(1, arguments.cameras + 1)))
        listed = subprocess.run([arguments.build / "ovrtspd", "-c", config, "--recordings"], capture_output=True, text=True,
                                timeout=60, check=True).stdout
        self.intervals = sorted(tuple(map(int, found)) for found in
                                re.findall(r"/orv/playback/(\d+)_(\d+)_(\d+)", listed))
        self.log = open(folder / "playing.log", "wb")
        self.process = subprocess.Popen([arguments.build / "ovrtspd", "-c", config], stdout=subprocess.DEVNULL,
                                        stderr=self.log)
        time.sleep(1)

    def urls(self, arguments, sessions):
        needed = int(arguments.seconds) + OPENING
        for i in range(sessions):
            camera, begin, end = self.intervals[i % len(self.intervals)]
            room = end - begin - needed
            if room < 1:
                raise ValueError(f"camera {camera}: {end - begin} s are too little; use --length")
            start = begin + (i // len(self.intervals)) * room // (sessions // len(self.intervals) + 1)
            yield f"rtsp://127.0.0.1:{arguments.port}/orv/playback/{camera}_{start}_{start + needed}"

    def end(self):
        end_all([self.process])


def measure(arguments, folder, directory, sessions):
    server = Server(arguments, folder, directory)
    try:
        urls = folder / "urls"
        urls.write_text("".join(url + "\n" for url in server.urls(arguments, sessions)))
        baseline = ["--baseline-seconds", "3"] if sessions > 1 else []
        done = subprocess.run([arguments.build / "rtsp_load", "--urls", urls, "--mode", "hold", "--viewers", str(sessions),
                               "--seconds", str(arguments.seconds), "--transport", arguments.transport, "--pace", "--json",
                               "--server-pid", str(server.process.pid), *baseline], capture_output=True, text=True,
                              timeout=300)
        result = json.loads(done.stdout)
        result["good"] = done.returncode == 0
        return result
    finally:
        server.end()


def median(results, key):
    values = [result[key] for result in results if key in result]
    return statistics.median(values) if values else float("nan")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--play-build", type=lambda path: pathlib.Path(path).resolve(), help="of the server that plays")
    parser.add_argument("--cameras", type=int, default=64)
    parser.add_argument("--sessions", default="1,100,1000")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=20, help="how long to measure each time")
    parser.add_argument("--length", type=float, default=60, help="seconds to record")
    parser.add_argument("--segment", type=int, default=10, help="seconds of ovrtspd's segments")
    parser.add_argument("--transport", choices=["tcp", "udp", "both"], default="tcp")
    parser.add_argument("--port", type=int, default=18554)
    parser.add_argument("--disk", default="/dev/shm", help="where the folder for the recordings is made")
    parser.add_argument("--recordings", type=pathlib.Path, help="directory of recordings to play instead; it is kept")
    parser.add_argument("--keep", action="store_true", help="keep the recordings and print where they are")
    arguments = parser.parse_args()
    arguments.audio, arguments.source, arguments.origin_threads = "none", "rtsp", 1
    folder = pathlib.Path(tempfile.mkdtemp(prefix="playback-crowd-", dir=arguments.disk))
    load = os.getloadavg()[0]
    numbers = [int(number) for number in arguments.sessions.split(",")]
    results = {number: [] for number in numbers}
    try:
        directory = arguments.recordings
        if not directory:
            arguments.video = folder / "video.h264"
            make_video(arguments.video)
            directory = record(arguments, folder)
        arguments.build = arguments.play_build or arguments.build
        for _ in range(arguments.rounds):
            for number in numbers:
                result = measure(arguments, folder, directory, number)
                results[number].append(result)
                print(f"    {number}: {json.dumps(result)}", file=sys.stderr, flush=True)
    finally:
        if arguments.keep:
            print(f"recordings are kept in {folder}", file=sys.stderr)
        else:
            shutil.rmtree(folder)
    print(f"{circumstances(arguments, load)}, {arguments.cameras} cameras, {arguments.transport}")
    print("\n| sessions | server, % of a core | % of a core a further session | KB a further session | threads "
          "| frame late p50, ms | p99 | max | packets lost | failed or faulty |\n|---|---|---|---|---|---|---|---|---|---|")
    for number, found in results.items():
        print(f"| {number} | {median(found, 'server_core_percent'):.1f} | {median(found, 'core_percent_per_viewer'):.4f} "
              f"| {median(found, 'resident_kb_per_session'):.0f} | {median(found, 'server_threads'):.0f} "
              f"| {median(found, 'frame_late_p50_ms'):.1f} | {median(found, 'frame_late_p99_ms'):.1f} "
              f"| {max(result['frame_late_max_ms'] for result in found):.0f} "
              f"| {sum(result['packets_lost'] for result in found)} "
              f"| {sum(result['failed'] + result['with_faults'] for result in found)} |")
    return 0 if all(result["good"] for found in results.values() for result in found) else 1


if __name__ == "__main__":
    raise SystemExit(main())
