#!/usr/bin/env python3
"""Measures what viewers of one stream through a WebSocket cost ovrtspd, beside RTSP viewers over TCP.

    bench/page_viewers.py --build build/release [--viewers 500] [--rounds 5] [--seconds 10]

The stream is the test camera (640x360, 25 frames a second, 1 Mbit/s, without audio), which one more viewer keeps running. By
turns nobody else watches, then as many through WebSockets, then as many by RTSP, each a round; what a viewer costs is the
difference to the round's rest. The memory is that of the first round's WebSocket viewers, against the server at rest before.
Server and clients share the machine's cores.
"""

import argparse
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import tempfile
import time

from cameras import circumstances, end_all

SERVER = """
port = {port}
log-level = "warning"
[limits]
sessions = 4096
connections-per-address = 4096
sessions-per-address = 4096
[http]
listen = "127.0.0.1:{http}"
connections = 4096
connections-per-address = 4096
rate = 100000
[[camera]]
id = 1
[[camera.stream]]
id = 0
width = 640
height = 360
bit-rate = 1000
"""


def used(process):
    """Processor seconds and resident bytes."""
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rsplit(")", 1)[1].split()
    resident = int(pathlib.Path(f"/proc/{process.pid}/statm").read_text().split()[1])
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK"), resident * os.sysconf("SC_PAGE_SIZE")


def rest(arguments, server):
    """Percent of a core, and resident bytes."""
    before, start = used(server)[0], time.monotonic()
    time.sleep(arguments.seconds)
    after, resident = used(server)
    return 100 * (after - before) / (time.monotonic() - start), resident


def run(arguments, command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]}: {done.stdout}{done.stderr}")
    return json.loads(done.stdout)


def watch(arguments, server):
    found = run(arguments, [arguments.build / "watch_load", "--mode", "live", "--port", arguments.port + 1, "--query", "?audio=0",
                            "--viewers", arguments.viewers, "--seconds", arguments.seconds, "--server-pid", server.pid])
    return found["server_core_percent"], found["server_resident_bytes"], found["messages_per_viewer_second"]


def rtsp(arguments, server):
    return run(arguments, [arguments.build / "rtsp_load", "--url", f"rtsp://127.0.0.1:{arguments.port}/orv/live/1/0",
                           "--transport", "tcp", "--mode", "hold", "--viewers", arguments.viewers, "--seconds", arguments.seconds,
                           "--server-pid", server.pid, "--json"])["server_core_percent"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--viewers", type=int, default=500)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=10)
    parser.add_argument("--port", type=int, default=8554, help="of RTSP; the next one is that of HTTP")
    arguments = parser.parse_args()
    arguments.build = arguments.build.resolve()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="page-viewers-"))
    load = os.getloadavg()[0]
    (folder / "server.toml").write_text(SERVER.format(port=arguments.port, http=arguments.port + 1))
    processes = [subprocess.Popen([arguments.build / "ovrtspd", "-c", folder / "server.toml"], stdout=subprocess.DEVNULL)]
    server = processes[0]
    try:
        time.sleep(1)
        processes.insert(0, subprocess.Popen([arguments.build / "watch_load", "--port", str(arguments.port + 1), "--query", "?audio=0", "--viewers", "1",
                                              "--seconds", "100000"], stdout=subprocess.DEVNULL))
        time.sleep(3)
        rounds = []
        memory = None
        for _ in range(arguments.rounds):
            idle, resident = rest(arguments, server)
            live, crowded, rate = watch(arguments, server)
            memory = memory or (crowded - resident) / arguments.viewers
            rounds.append(((live - idle) / arguments.viewers, (rtsp(arguments, server) - idle) / arguments.viewers, rate))
        print(circumstances(arguments, load))
        print("| Round | WebSocket viewer, % of a core | RTSP viewer over TCP | Ratio | Frames a second |\n|---|---|---|---|---|")
        for number, (live, other, rate) in enumerate(rounds, 1):
            print(f"| {number} | {live:.4f} | {other:.4f} | {live / other:.2f} | {rate:.1f} |")
        ratio = statistics.median(live for live, _, _ in rounds) / statistics.median(other for _, other, _ in rounds)
        print(f"\nRatio of the medians {ratio:.2f}; memory of a WebSocket viewer {memory / 1024:.0f} KB")
    finally:
        end_all(processes)
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
