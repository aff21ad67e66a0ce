#!/usr/bin/python3
"""What reading the configuration again costs those whom it does not concern.

reload_crowd.py --build BUILD [--viewers 200] [--recordings 6] [--reloads 100] [--json]

Starts ovrtspd with as many recorded cameras, and has rtsp_load watch them with as many viewers, every other one over UDP,
the rest over TCP. Meanwhile the configuration is read again and again: each time the users, a limit, the encoder of one
more camera and its name change, and another camera comes or goes, with a viewer of its own for whom that is the end.

Prints packets lost by the viewers, gaps of the recordings, the time of a reload, and descriptors, threads and memory before
the first and after the last one. Exit code 1: a viewer lost a packet, a recording has a gap, or something was left over. The server runs
with one arena of malloc: with several, what threads free stays spread over them, and memory says little.
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

from cameras import Use, wait_until

# Loops over each change a few times before the first count: caches and pools have their size then.
WARM_UP = 6
# Memory that the allocator may keep beyond what it had after the warm-up, in bytes.
SPARE_MEMORY = 8 << 20

TOP = """port = {port}
log-level = "debug"
linger = 0

[http]
listen = ""

[limits]
sessions = {sessions}

[recording]
directory = "{folder}/recordings"
segment = 5

[[user]]
name = "anonymous"
live = "*"
playback = "*"

[[user]]
name = "guard"
password = "{password}"
live = "*"
"""

CAMERA = """
[[camera]]
id = {number}
name = "{name}"

  [[camera.stream]]
  id = 0
  width = {width}
  height = 120
  frame-rate = 25
  bit-rate = {rate}
  gop = 25
  record = {record}
"""


def camera(number, name="", width=160, rate=100, record="false"):
    return CAMERA.format(number=number, name=name or f"camera {number}", width=width, rate=rate, record=record)


class Measurement:
    def __init__(self, arguments, folder):
        self.arguments = arguments
        self.folder = folder
        self.config = folder / "ovrtspd.toml"
        self.write(0)
        self.log = folder / "log.txt"
        with open(self.log, "wb") as log:
            self.server = subprocess.Popen([arguments.build / "ovrtspd", "-c", self.config], stdout=subprocess.PIPE,
                                           stderr=log, text=True, env={**os.environ, "MALLOC_ARENA_MAX": "1"})
        self.port = int(re.search(r"rtsp://127.0.0.1:(\d+)/", "".join(self.server.stdout.readline() for _ in range(3))).group(1))
        self.times = []

    def write(self, turn):
        """The configuration of this turn; all of them differ from the one before in users, limits and cameras."""
        count = self.arguments.recordings
        parts = [TOP.format(port=0, folder=self.folder, sessions=4000 + turn % 7, password=f"p{turn}")]
        parts += [camera(number, record="true") for number in range(1, count + 1)]
        parts.append(camera(count + 1, name=f"changes {turn % 5}", width=160 + 16 * (turn % 3), rate=100 + turn % 4 * 10))
        if turn % 2 == 1:
            parts.append(camera(count + 2))
        self.config.write_text("".join(parts))

    def reload(self, turn):
        self.write(turn)
        start = time.monotonic()
        subprocess.run([self.arguments.build / "ovrtspd", "--reload", "-c", self.config], check=True, timeout=60,
                       capture_output=True)
        self.times.append(time.monotonic() - start)

    def url(self, number):
        return f"rtsp://127.0.0.1:{self.port}/orv/live/{number}/0"

    def sessions(self):
        found = re.findall(r"\bsessions: (\d+)", self.log.read_text(errors="replace"))
        return int(found[-1]) if found else 0

    def turn(self, turn):
        """One reload, and a short look at the cameras that it concerns."""
        self.reload(turn)
        if turn % 2 == 1:
            # Ends with the next turn, by BYE: ffmpeg takes that as the end of the stream.
            self.guest = subprocess.Popen(
                ["ffmpeg", "-nostdin", "-v", "quiet", "-rtsp_transport", "udp" if turn % 4 == 1 else "tcp", "-i",
                 self.url(self.arguments.recordings + 2), "-c", "copy", "-f", "null", "-"])
            time.sleep(self.arguments.pause)
        else:
            self.guest.wait(timeout=20)

    def counts(self):
        folder = pathlib.Path(f"/proc/{self.server.pid}")
        use = Use([self.server])
        return {"descriptors": len(list((folder / "fd").iterdir())), "threads": use.threads, "memory": use.resident}

    def run(self):
        arguments = self.arguments
        urls = self.folder / "urls"
        urls.write_text("".join(self.url(number) + "\n" for number in range(1, arguments.recordings + 1)))
        for turn in range(1, WARM_UP + 1):
            self.turn(turn)
        # The viewers watch for as long as the reloads are expected to take, and then some.
        expected = arguments.reloads * (max(self.times) + arguments.pause / 2 + 0.4) + 10
        viewers = subprocess.Popen(
            [arguments.build / "rtsp_load", "--urls", urls, "--mode", "hold", "--viewers", str(arguments.viewers), "--transport",
             "both", "--all-tracks", "--seconds", f"{expected:.0f}", "--json"], stdout=subprocess.PIPE, text=True)
        try:
            wait_until(lambda: self.sessions() >= arguments.viewers, 60, "the viewers watch")
            time.sleep(2)
            before = self.counts()
            self.times.clear()
            begin = time.monotonic()
            for turn in range(WARM_UP + 1, WARM_UP + 1 + arguments.reloads):
                self.turn(turn)
            seconds = time.monotonic() - begin
            watched = viewers.poll() is None
            time.sleep(2)
            after = self.counts()
            out, _ = viewers.communicate(timeout=expected + 60)
        finally:
            viewers.kill()
        load = json.loads(out)
        listed = subprocess.run([arguments.build / "ovrtspd", "--recordings", "-c", self.config], capture_output=True, text=True,
                                check=True, timeout=60).stdout
        return {"viewers": load["played"], "with_faults": load["with_faults"], "packets": load["packets"],
                "packets_lost": load["packets_lost"], "watched_to_the_end": watched, "reloads": arguments.reloads,
                "seconds": round(seconds, 1), "reload_ms": round(1000 * statistics.median(self.times), 1),
                "reload_ms_max": round(1000 * max(self.times), 1), "gaps": len(re.findall("^  gap of", listed, re.M)),
                "before": before, "after": after}

    def end(self):
        self.server.terminate()
        self.server.wait(timeout=20)


def is_good(result, viewers):
    before, after = result["before"], result["after"]
    return (result["viewers"] == viewers and result["with_faults"] == result["packets_lost"] == result["gaps"] == 0 and
            result["watched_to_the_end"] and after["descriptors"] <= before["descriptors"] and
            after["threads"] <= before["threads"] and after["memory"] <= before["memory"] + SPARE_MEMORY)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--viewers", type=int, default=200)
    parser.add_argument("--recordings", type=int, default=6, help="recorded cameras, which the viewers watch")
    parser.add_argument("--reloads", type=int, default=100, help="an even number")
    parser.add_argument("--pause", type=float, default=1.5, help="seconds that a viewer has the camera that comes and goes")
    parser.add_argument("--json", action="store_true")
    arguments = parser.parse_args()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="reload-crowd-"))
    try:
        measurement = Measurement(arguments, folder)
        try:
            result = measurement.run()
        finally:
            measurement.end()
        print(json.dumps(result) if arguments.json else "\n".join(f"{name}: {value}" for name, value in result.items()))
        sys.exit(0 if is_good(result, arguments.viewers) else 1)
    finally:
        shutil.rmtree(folder)


if __name__ == "__main__":
    main()
