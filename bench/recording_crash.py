#!/usr/bin/env python3
"""Measures how many seconds of a recording a crash takes, and that the repair behind it deletes nothing.

    bench/recording_crash.py --build build/release [--runs 20] [--crash kill|power] [--beside 4]

kill: the server is ended with SIGKILL while it records. power: it records to an ext4 file system of its own, which is
shut down without another byte for its disk, as a power cut does; needs root, and loop devices. Each run crashes at
another instant, starts the server again and compares the end of what it lists with the instant of the crash, and the
files before the repair with those after it.
"""

import argparse
import concurrent.futures
import ctypes
import fcntl
import os
import pathlib
import random
import re
import signal
import statistics
import struct
import subprocess
import tempfile
import time

CONFIG = """
port = 0
[recording]
directory = "{directory}"
segment = 2
[[camera]]
id = 1
[[camera.stream]]
id = 0
width = 320
height = 180
bit-rate = {rate}
record = {record}
"""
EXT4_IOC_SHUTDOWN = 0x8004587D
NO_LOG_FLUSH = 2


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.02)


class Server:
    def __init__(self, build, folder, directory, record, rate):
        folder.mkdir()
        self.config = folder / "ovrtspd.toml"
        self.config.write_text(CONFIG.format(directory=directory, record=str(record).lower(), rate=rate))
        self.log_path = folder / "log.txt"
        self.build = build
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen([build / "ovrtspd", "-c", self.config], stdin=subprocess.DEVNULL,
                                            stdout=subprocess.DEVNULL, stderr=log)

    def log(self):
        return self.log_path.read_text(errors="replace")

    def end(self, how):
        self.process.send_signal(how)
        self.process.wait(20)

    def intervals(self):
        """Begin and end of what is listed, Unix seconds."""
        listed = subprocess.run([self.build / "ovrtspd", "-c", self.config, "--recordings"], capture_output=True,
                                text=True, timeout=30).stdout
        return [(float(a), float(b)) for a, b in re.findall(r"from \S+Z \(([0-9.]+)\) to \S+Z \(([0-9.]+)\)", listed)]


class Disk:
    """An ext4 file system in a file."""

    def __init__(self, folder):
        self.image = folder / "image"
        self.mount_point = folder / "disk"
        self.mount_point.mkdir()
        with open(self.image, "wb") as image:
            image.truncate(256 << 20)
        subprocess.run(["mkfs.ext4", "-q", self.image], check=True)
        self.mount()

    def mount(self):
        subprocess.run(["mount", "-o", "loop", self.image, self.mount_point], check=True)

    def unmount(self):
        subprocess.run(["umount", self.mount_point], check=True)

    def cut_power(self):
        handle = os.open(self.mount_point, os.O_RDONLY)
        fcntl.ioctl(handle, EXT4_IOC_SHUTDOWN, struct.pack("I", NO_LOG_FLUSH))
        os.close(handle)


def kept_files(directory):
    return {path.relative_to(directory).as_posix(): path.stat().st_size for path in directory.rglob("*.mkv*")}


def run(number, arguments, folder):
    folder = pathlib.Path(folder) / str(number)
    folder.mkdir()
    disk = Disk(folder) if arguments.crash == "power" else None
    directory = (disk.mount_point if disk else folder) / "recordings"
    server = Server(arguments.build, folder / "first", directory, True, arguments.rate)
    wait_until(lambda: list(directory.rglob("*.mkv")), 60, "a first file")
    time.sleep(random.uniform(arguments.shortest, arguments.longest))
    crashed = time.time()
    if disk:
        disk.cut_power()
    server.end(signal.SIGKILL)
    if disk:
        disk.unmount()
        disk.mount()
    before = kept_files(directory) if directory.exists() else {}
    again = Server(arguments.build, folder / "second", directory, False, arguments.rate)
    try:
        wait_until(lambda: not before or again.intervals() or ".damaged" in again.log(), 30, "the repair")
        time.sleep(0.5)
    finally:
        again.end(signal.SIGTERM)
    after = kept_files(directory)
    missing = [name for name, size in before.items()
               if after.get(name) != size and after.get(name + ".damaged") != size]
    intervals = again.intervals()
    last = max((end for _, end in intervals), default=None)
    if disk:
        disk.unmount()
    return {"lost": crashed - last if last else None, "missing": missing, "intervals": len(intervals),
            "files": len(before), "damaged": sum(name.endswith(".damaged") for name in after)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--runs", type=int, default=20)
    parser.add_argument("--crash", choices=["kill", "power"], default="kill")
    parser.add_argument("--beside", type=int, default=4, help="how many runs at a time")
    parser.add_argument("--shortest", type=float, default=3, help="seconds of recording before the crash")
    parser.add_argument("--longest", type=float, default=15)
    parser.add_argument("--rate", type=int, default=400, help="kbit/s of the camera")
    arguments = parser.parse_args()
    if arguments.crash == "power":
        libc = ctypes.CDLL(None, use_errno=True)
        private = 1 << 18 | 1 << 14  # MS_PRIVATE, MS_REC
        if libc.unshare(0x20000) != 0 or libc.mount(b"none", b"/", None, private, None) != 0:  # CLONE_NEWNS
            parser.exit(1, f"mounting is not permitted: {os.strerror(ctypes.get_errno())}\n")
    with tempfile.TemporaryDirectory() as folder, \
            concurrent.futures.ThreadPoolExecutor(arguments.beside) as pool:
        results = list(pool.map(lambda number: run(number, arguments, folder), range(arguments.runs)))
    lost = [result["lost"] for result in results if result["lost"] is not None]
    print(f"{len(results)} crashes ({arguments.crash}): seconds lost: median {statistics.median(lost):.2f}, "
          f"worst {max(lost):.2f}, best {min(lost):.2f}" if lost else "nothing was left")
    print(f"  {len(results) - len(lost)} left nothing to play, "
          f"{sum(result['intervals'] > 1 for result in results)} left a gap, "
          f"{sum(result['damaged'] for result in results)} of {sum(result['files'] for result in results)} files are "
          f"kept as *.damaged")
    missing = [name for result in results for name in result["missing"]]
    print(f"  files that the repair deleted or changed: {len(missing)}" + "".join(f"\n    {name}" for name in missing))
    return 1 if missing else 0


if __name__ == "__main__":
    raise SystemExit(main())
