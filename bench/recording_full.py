#!/usr/bin/python3
"""Holds recording against a disk that is full all the time.

recording_full.py --build BUILD [--seconds 600] [--cameras 4] [--disk 64] [--json]

Starts ovrtspd with as many recorded cameras on a disk of so many MiB that exists for this alone (a file system in memory, in a
mount namespace of its own; needs root), without min-free and max-size, so that nothing but the full disk makes room. Looks at
files, log and listing all the time.

Prints how often the disk was filled to its last 5 %, how much was written, gaps, lines that say that recording stopped, files
that went before an older one of the same camera, and how index and files differ at the end. Exit code 1 where one of these is
not 0, where a camera's recording does not reach up to now, or where the disk was never full.
"""
import argparse
import ctypes
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

from cameras import wait_until

TOP = """port = 0
[http]
listen = ""
[recording]
directory = "{folder}"
segment = 2
max-size = 0
min-free = "0"
"""

CAMERA = """
[[camera]]
id = {number}
  [[camera.stream]]
  id = 0
  width = 640
  height = 360
  bit-rate = {rate}
  gop = 25
  record = true
"""


def mount(folder, mebibytes):
    libc = ctypes.CDLL(None, use_errno=True)
    private = 1 << 18 | 1 << 14  # MS_PRIVATE, MS_REC
    if (libc.unshare(0x20000) != 0 or libc.mount(b"none", b"/", None, private, None) != 0 or  # CLONE_NEWNS
            libc.mount(b"none", bytes(folder), b"tmpfs", 0, f"size={mebibytes}m".encode()) != 0):
        sys.exit(f"mounting is not permitted: {os.strerror(ctypes.get_errno())}")


def files_of(folder, number):
    """Names of a camera's files, which are their dates: the oldest first."""
    return sorted(path.name for path in (folder / str(number) / "0").glob("*.mkv"))


class Watch:
    """What becomes of the files of each camera."""

    def __init__(self, disk, folder, cameras):
        self.disk, self.folder = disk, folder
        self.seen = {number: [] for number in range(1, cameras + 1)}
        self.out_of_order = self.removed = self.written = 0
        self.full = self.looks = 0

    def look(self):
        status = os.statvfs(self.disk)
        self.looks += 1
        self.full += status.f_bavail * 20 <= status.f_blocks
        for number, before in self.seen.items():
            now = files_of(self.folder, number)
            gone = [name for name in before if name not in now]
            # The oldest of a camera go first: what went is what stood in front.
            self.out_of_order += gone != before[:len(gone)]
            self.removed += len(gone)
            self.seen[number] = now


def listed(arguments, config):
    return subprocess.run([arguments.build / "ovrtspd", "--recordings", "-c", config], capture_output=True, text=True,
                          timeout=60, check=True).stdout


def measure(arguments, disk):
    folder = disk / "recordings"
    config = disk.parent / "ovrtspd.toml"
    config.write_text(TOP.format(folder=folder) +
                      "".join(CAMERA.format(number=i, rate=arguments.rate) for i in range(1, arguments.cameras + 1)))
    log = disk.parent / "log.txt"
    with open(log, "wb") as out:
        server = subprocess.Popen([arguments.build / "ovrtspd", "-c", config], stdout=subprocess.DEVNULL, stderr=out)
    watch = Watch(disk, folder, arguments.cameras)
    try:
        wait_until(lambda: all(files_of(folder, number) for number in watch.seen), 60, "every camera is recorded")
        end = time.monotonic() + arguments.seconds
        while time.monotonic() < end:
            watch.look()
            time.sleep(0.2)
    finally:
        server.terminate()
        server.wait(timeout=30)
    stopped_at = time.time()
    text = listed(arguments, config)
    watch.look()
    ends = [float(seconds) for seconds in re.findall(r" to \S+ \(([0-9.]+)\)", text)]
    begins = [float(seconds) for seconds in re.findall(r"from \S+ \(([0-9.]+)\)", text)]
    log_text = log.read_text(errors="replace")
    return {"seconds": arguments.seconds, "cameras": arguments.cameras, "disk_MiB": arguments.disk,
            "looks": watch.looks, "looks_at_a_full_disk": watch.full, "files_removed": watch.removed,
            "removed_out_of_order": watch.out_of_order, "stops": log_text.count("recording stopped"),
            "rooms_made": log_text.count("made room"), "ranges": len(begins), "gaps": len(re.findall("^  gap of", text, re.M)),
            "behind_s": round(stopped_at - min(ends, default=0), 2),
            "kept_s": round(min((e - b for b, e in zip(begins, ends)), default=0), 1),
            "index_differs": differences(folder, watch.seen)}


def differences(folder, seen):
    """Files that the index does not know, or knows with another size, and entries without a file."""
    import sqlite3
    with sqlite3.connect(f"file:{folder}/index.db?mode=ro", uri=True) as index:
        columns = [row[1] for row in index.execute("PRAGMA table_info(segment)")]
        rows = [dict(zip(columns, row)) for row in index.execute("SELECT * FROM segment")]
    entries = {pathlib.Path(row["path"]).name + f" {row['camera']}": row["bytes"] for row in rows}
    files = {f"{name} {number}": (folder / str(number) / "0" / name).stat().st_size
             for number, names in seen.items() for name in names}
    return len(set(entries.items()) ^ set(files.items()))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--seconds", type=float, default=600)
    parser.add_argument("--cameras", type=int, default=4)
    parser.add_argument("--rate", type=int, default=2000, help="kbit/s of a camera")
    parser.add_argument("--disk", type=int, default=64, help="MiB")
    parser.add_argument("--json", action="store_true")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="recording-full-") as root:
        disk = pathlib.Path(root).resolve() / "disk"
        disk.mkdir()
        mount(disk, arguments.disk)
        try:
            result = measure(arguments, disk)
        finally:
            ctypes.CDLL(None).umount2(bytes(disk), 2)  # MNT_DETACH
    print(json.dumps(result) if arguments.json else "\n".join(f"{name}: {value}" for name, value in result.items()))
    bad = ("removed_out_of_order", "stops", "gaps", "index_differs")
    good = (all(result[name] == 0 for name in bad) and result["looks_at_a_full_disk"] > 0 and result["files_removed"] > 0 and
            result["ranges"] == arguments.cameras and result["behind_s"] < 5)
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
