#!/usr/bin/python3
"""Compares an export with the speed of the disk, and watches its memory.

export_disk.py --build BUILD [--folder FOLDER] [--mebibytes 1024] [--rounds 3] [--json]

Makes so many MiB of recordings of one camera in FOLDER (default: a temporary one), has ovrtspd enter them in its index, and then, in
turns: copies the segments with `cat`, exports them with `ovrtspd --export`, and exports them over HTTP with curl, each time to a
file on the same disk and from files that were put out of the page cache.

Prints MiB a second of each round, the largest resident memory of the exporting process, and by how much that of the server grew.
"""
import argparse
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

from cameras import wait_until

CONFIG = """port = 0
[http]
listen = "127.0.0.1:0"
[recording]
directory = "{folder}"
max-size = 0
min-free = "0"
[[camera]]
id = 1
  [[camera.stream]]
  id = 0
  width = 320
  height = 240
"""
SECONDS = 10  # of a segment
START = datetime.datetime(2026, 1, 1, tzinfo=datetime.timezone.utc)


def make_recordings(folder, mebibytes):
    """Noise, whose size does not depend on how well it is encoded, as often as it takes."""
    streams = folder / "1" / "0"
    streams.mkdir(parents=True)
    rate = 80000000
    count = max(1, round(mebibytes * 1048576 * 8 / (rate * SECONDS)))
    first = streams / name_of(0)
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=s=1280x720:r=25,noise=alls=100:allf=t", "-t", str(SECONDS),
                    "-c:v", "libx264", "-preset", "ultrafast", "-b:v", str(rate), "-minrate", str(rate), "-maxrate", str(rate),
                    "-bufsize", str(rate // 4), "-nal-hrd", "cbr", "-g", "25", "-bf", "0", "-pix_fmt", "yuv420p", "-f", "matroska", first],
                   check=True)
    for index in range(1, count):
        subprocess.run(["cp", first, streams / name_of(index)], check=True)
    os.sync()
    return sorted(streams.glob("*.mkv"))


def name_of(index):
    begin = START + datetime.timedelta(seconds=index * SECONDS)
    return begin.strftime("%Y%m%dT%H%M%S.%fZ.mkv")


def forget(files):
    """Puts files out of the page cache."""
    for path in files:
        with open(path, "rb") as file:
            os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)


def status(pid, key):
    return int(re.search(rf"{key}:\s+(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text()).group(1)) / 1024


def timed(command, out):
    """MiB a second and the largest memory of one command that writes `out`, up to the disk."""
    start = time.monotonic()
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        _, code, usage = os.wait4(process.pid, 0)
        errors = process.stderr.read().decode(errors="replace")
        process.returncode = os.waitstatus_to_exitcode(code)
    if process.returncode != 0:
        sys.exit(f"{command[0]}: exit code {process.returncode}: {errors[-500:]}")
    with open(out, "rb") as file:
        os.fsync(file.fileno())
    took = time.monotonic() - start
    size = out.stat().st_size
    out.unlink()
    return round(size / 1048576 / took), round(usage.ru_maxrss / 1024), size


def measure(arguments, disk):
    folder = disk / "recordings"
    files = make_recordings(folder, arguments.mebibytes)
    config = disk / "ovrtspd.toml"
    config.write_text(CONFIG.format(folder=folder))
    log = disk / "log.txt"
    with open(log, "wb") as out:
        server = subprocess.Popen([arguments.build / "ovrtspd", "-c", config], stdout=subprocess.DEVNULL, stderr=out)
    try:
        wait_until(lambda: f"{len(files)} unknown adopted" in log.read_text(errors="replace"), 300, "the index knows the recordings")
        port = re.search(r"listening for HTTP on \S+ port (\d+)", log.read_text()).group(1)
        begin, end = START.timestamp(), START.timestamp() + len(files) * SECONDS
        result = {"MiB": round(sum(path.stat().st_size for path in files) / 1048576), "segments": len(files),
                  "cat": [], "export": [], "http": [], "export_MiB_of_memory": [], "server_MiB_before": round(status(server.pid, "VmRSS"))}
        copy = disk / "copy"
        commands = {
            "cat": ["sh", "-c", 'out=$1; shift; cat "$@" > "$out"', "sh", copy, *files],
            "export": [arguments.build / "ovrtspd", "--export", "1", str(begin), str(end), copy, "-c", config],
            "http": ["curl", "-sS", "-f", "-o", copy, f"http://127.0.0.1:{port}/api/v1/recordings/1/export.mp4?start={begin}&end={end}"]}
        for _ in range(arguments.rounds):
            for name, command in commands.items():
                forget(files)
                rate, memory, size = timed(command, copy)
                result[name].append(rate)
                if name == "export":
                    result["export_MiB_of_memory"].append(memory)
                    result["export_bytes"] = size
        result["server_MiB_most"] = round(status(server.pid, "VmHWM"))
        return result
    finally:
        server.terminate()
        server.wait(timeout=30)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--folder", type=pathlib.Path)
    parser.add_argument("--mebibytes", type=int, default=1024)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--json", action="store_true")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=arguments.folder) as disk:
        result = measure(arguments, pathlib.Path(disk))
    if arguments.json:
        print(json.dumps(result))
        return
    for key, value in result.items():
        print(f"{key}: {value}")


if __name__ == "__main__":
    main()
