#!/usr/bin/env python3
"""Measures what relaying cameras that are read over RTSP costs, one viewer for each, and by how much it delays frames.

    bench/relay_cameras.py --build build/release [--cameras 1,16,64] [--rounds 3] [--seconds 20] [--transport tcp]

rtsp_origin plays the cameras as in record_cameras.py: 640x360, 25 frames a second, a key frame every two seconds,
1 Mbit/s, over interleaved TCP. rtsp_load is their viewers: one for each camera, which checks what it receives. Processor
time is what the scheduler counted for all threads of ovrtspd.

For the delay this program is one more camera and its viewer, amid the others: it sends a frame of 5,000 bytes in four
packets, waits for the last one to come back through ovrtspd, and sends the same bytes over a loopback connection of its
own. The difference of these times is what the relay adds. Rounds are interleaved, the table has medians of the rounds.
"""

import argparse
import contextlib
import json
import os
import pathlib
import re
import select
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from cameras import Origin, Use, add_arguments, circumstances, end_all, film, wait_until

SERVER = """
port = 0
log-level = "warning"
live-controller = "{controller}"
"""
CAMERA = """
[[camera]]
id = {number}
[[camera.stream]]
id = 0
source = "{source}"
location = "{url}"
audio = "none"
"""
PROBE = 100001  # number of the camera that this program is
FRAME_SECONDS = 0.04
FRAME_BYTES = 5000
PACKETS = 4
KEY_FRAMES = 50
PATIENCE = 10
SETS = "Z0LAFdoFB+wFqDAwNSgAAAMACAAAAwHkeLF1,aM4PyA=="


class ProbeCamera:
    """An RTSP camera with one client, whose frames are sent by send()."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"rtsp://127.0.0.1:{self.listener.getsockname()[1]}/probe"
        self.playing = threading.Event()
        self.client = None
        self.sequence = 0
        self.frame = 0
        threading.Thread(target=self._serve, daemon=True).start()

    def close(self):
        self.listener.close()
        if self.client:
            with contextlib.suppress(OSError):
                self.client.shutdown(socket.SHUT_RDWR)

    def _serve(self):
        with contextlib.suppress(OSError):
            while True:
                client, _ = self.listener.accept()
                client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                self._answer_all(client)

    def _answer_all(self, client):
        data = b""
        while block := client.recv(65536):
            data += block
            while data:
                if data[:1] == b"$":
                    end = 4 + int.from_bytes(data[2:4], "big")
                    if len(data) < max(end, 4):
                        break
                    data = data[end:]
                    continue
                end = data.find(b"\r\n\r\n")
                if end < 0:
                    break
                request, data = data[:end].decode(), data[end + 4:]
                self._answer(client, request)

    def _answer(self, client, request):
        method = request.split(" ", 1)[0]
        cseq = re.search(r"(?im)^cseq:\s*(\d+)", request).group(1)
        headers = {"OPTIONS": "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER\r\n",
                   "DESCRIBE": f"Content-Type: application/sdp\r\nContent-Base: {self.url}/\r\n",
                   "SETUP": "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\nSession: 1\r\n"}
        body = ("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=probe\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\n"
                f"a=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1;sprop-parameter-sets={SETS}\r\n"
                "a=control:trackID=0\r\n") if method == "DESCRIBE" else ""
        length = f"Content-Length: {len(body)}\r\n" if body else ""
        client.sendall(f"RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\n{headers.get(method, 'Session: 1')}".encode().rstrip()
                       + b"\r\n" + f"{length}\r\n{body}".encode())
        if method == "PLAY":
            self.client = client
            self.playing.set()

    def next_frame(self):
        """Its bytes on an interleaved connection, and those with which its last packet's payload starts."""
        nal = 0x65 if self.frame % KEY_FRAMES == 0 else 0x41
        stamp = (self.frame * 3600 & 0xFFFFFFFF).to_bytes(4, "big")
        number = (self.frame + 0x01010101).to_bytes(4, "big")  # free of start codes
        data = b""
        for i in range(PACKETS):
            flags = (0x80 if i == 0 else 0) | (0x40 if i == PACKETS - 1 else 0)
            payload = bytes([nal & 0xE0 | 28, nal & 0x1F | flags]) + (b"\x88" if i == 0 else b"\x55") + number
            payload += b"\x55" * (FRAME_BYTES // PACKETS - len(payload))
            last = 0x80 if i == PACKETS - 1 else 0
            packet = (bytes([0x80, 96 | last]) + (self.sequence & 0xFFFF).to_bytes(2, "big") + stamp
                      + bytes([0, 0, 0, 7]) + payload)
            data += b"$\0" + len(packet).to_bytes(2, "big") + packet
            self.sequence += 1
        self.frame += 1
        return data, payload[:7]


class ProbeViewer:
    """Plays the probe camera through a server over interleaved TCP."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=PATIENCE)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.data = b""
        self.cseq = 0
        url = f"rtsp://127.0.0.1:{port}/orv/live/{PROBE}/0"
        self.request("DESCRIBE", url)
        answer = self.request("SETUP", url + "/trackID=0", "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n")
        session = re.search(r"(?im)^session:\s*([^;\s]+)", answer).group(1)
        self.request("PLAY", url, f"Session: {session}\r\n")

    def request(self, method, url, headers=""):
        self.cseq += 1
        self.socket.sendall(f"{method} {url} RTSP/1.0\r\nCSeq: {self.cseq}\r\n{headers}\r\n".encode())
        while (end := self.data.find(b"\r\n\r\n")) < 0:
            self.data += self.socket.recv(65536)
        answer = self.data[:end].decode()
        if " 200 " not in answer.split("\r\n", 1)[0]:
            raise RuntimeError(f"{method}: {answer}")
        length = re.search(r"(?im)^content-length:\s*(\d+)", answer)
        end += 4 + (int(length.group(1)) if length else 0)
        while len(self.data) < end:
            self.data += self.socket.recv(65536)
        self.data = self.data[end:]
        return answer


def wait_for(connection, data, mark):
    """Receives until a packet whose payload starts with `mark` is there. Returns when, and what came behind it."""
    while True:
        at = 0
        while len(data) >= at + 4:
            end = at + 4 + int.from_bytes(data[at + 2:at + 4], "big")
            if len(data) < end:
                break
            if data[at + 16:at + 16 + len(mark)] == mark:
                return time.perf_counter(), data[end:]
            at = end
        data = data[at:]
        block = connection.recv(262144)
        if not block:
            raise RuntimeError("the server closed the connection")
        data += block


def added_delays(camera, port, seconds):
    """Milliseconds by which each frame comes later than over a connection without a relay; and the median of those."""
    viewer = None
    failed = []

    def watch():
        nonlocal viewer
        try:
            viewer = ProbeViewer(port)
        except (OSError, RuntimeError) as error:
            failed.append(error)

    opening = threading.Thread(target=watch)
    opening.start()
    if not camera.playing.wait(PATIENCE):
        raise TimeoutError("the probe camera is not played")
    pair = socket.create_server(("127.0.0.1", 0))
    near = socket.create_connection(pair.getsockname())
    far, _ = pair.accept()
    near.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    # The viewer's start waits for a key frame.
    mark = b""
    end = time.monotonic() + PATIENCE
    while opening.is_alive() or not (failed or viewer.data or select.select([viewer.socket], [], [], 0)[0]):
        frame, mark = camera.next_frame()
        camera.client.sendall(frame)
        time.sleep(FRAME_SECONDS)
        if time.monotonic() > end:
            raise TimeoutError("the probe's viewer gets nothing")
    if failed:
        raise failed[0]
    relayed, direct = [], []
    rest, direct_rest = wait_for(viewer.socket, viewer.data, mark)[1], b""
    due = time.perf_counter()
    end = due + seconds
    while due < end:
        frame, mark = camera.next_frame()
        sent = time.perf_counter()
        camera.client.sendall(frame)
        came, rest = wait_for(viewer.socket, rest, mark)
        relayed.append(came - sent)
        sent = time.perf_counter()
        near.sendall(frame)
        came, direct_rest = wait_for(far, direct_rest, mark)
        direct.append(came - sent)
        due = max(due + FRAME_SECONDS, time.perf_counter())
        time.sleep(max(0, due - time.perf_counter()))
    for each in (near, far, pair, viewer.socket):
        each.close()
    base = statistics.median(direct)
    return [(delay - base) * 1000 for delay in relayed[len(relayed) // 10:]], base * 1000


def sockets(pid):
    count = 0
    for entry in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):
            count += os.readlink(entry).startswith("socket:")
    return count


def start_server(arguments, folder, origin, cameras, probe):
    urls = {number: f"rtsp://127.0.0.1:{origin.port}/camera/{number}" for number in range(1, cameras + 1)}
    urls[PROBE] = probe.url
    config = folder / "ovrtspd.toml"
    config.write_text(SERVER.format(controller=arguments.live_controller) + "".join(CAMERA.format(number=number, source=arguments.source, url=url)
                                       for number, url in urls.items()))
    output = folder / "output"
    with open(output, "wb") as out, open(folder / "log", "wb") as log:
        process = subprocess.Popen([arguments.build / "ovrtspd", "-c", config], stdout=out, stderr=log)
    wait_until(lambda: b"rtsp://" in output.read_bytes(), 60, "ovrtspd does not listen")
    return process, int(re.search(r"rtsp://[0-9.]+:(\d+)/", output.read_text()).group(1))


def viewers(arguments, folder, port, cameras, seconds):
    urls = folder / "urls"
    urls.write_text("".join(f"rtsp://127.0.0.1:{port}/orv/live/{number}/0\n" for number in range(1, cameras + 1)))
    return subprocess.Popen([arguments.build / "rtsp_load", "--mode", "hold", "--urls", urls, "--viewers", str(cameras),
                             "--transport", arguments.transport, "--seconds", str(seconds), "--json"],
                            stdout=subprocess.PIPE, text=True)


def measure(arguments, cameras):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="relay-cameras-"))
    origin = Origin(arguments, folder, cameras)
    probe = ProbeCamera()
    running = []
    try:
        server, port = start_server(arguments, folder, origin, cameras, probe)
        running.append(server)
        listening = sockets(server.pid)
        started = time.monotonic()
        load = viewers(arguments, folder, port, cameras, arguments.warm_up + 2 * arguments.seconds + 12)
        running.append(load)
        wait_until(lambda: sockets(server.pid) >= listening + 2 * cameras, 60 + cameras, "not every camera is relayed")
        up = time.monotonic() - started
        time.sleep(arguments.warm_up)
        before, origin_before = Use([server]), Use([origin.process])
        time.sleep(arguments.seconds)
        after, origin_after = Use([server]), Use([origin.process])
        delays, direct = added_delays(probe, port, arguments.seconds)
        judged = json.loads(load.communicate(timeout=120)[0])
        end_all([server])
        sent = origin.end()
        wall = after.wall - before.wall
        return {
            "core": 100 * (after.cpu - before.cpu) / wall / cameras,
            "switches": (after.switches - before.switches) / wall / cameras,
            "threads": after.threads, "resident": after.resident / 1048576, "up": up,
            "median": statistics.median(delays), "p99": statistics.quantiles(delays, n=100, method="inclusive")[98],
            "worst": max(delays), "direct": direct, "frames": len(delays),
            "lost": judged["packets_lost"], "failed": judged["failed"] + judged["with_faults"],
            "packets": judged["packets_per_viewer_second"],
            "origin": 100 * (origin_after.cpu - origin_before.cpu) / (origin_after.wall - origin_before.wall) / cameras,
            "late": sent["late"], "dropped": sent["dropped"],
        }
    finally:
        probe.close()
        end_all([process for process in running if process.poll() is None])
        origin.kill()
        for line in (folder / "log").read_text(errors="replace").splitlines()[:5]:
            print(f"    ovrtspd: {line}", file=sys.stderr)
        shutil.rmtree(folder)


def row(cameras, results):
    def median(key, digits):
        return f"{statistics.median(result[key] for result in results):.{digits}f}"

    cores = sorted(result["core"] for result in results)
    print(f"| {cameras} | {median('core', 3)} ({cores[0]:.3f} to {cores[-1]:.3f}) | {median('threads', 0)} "
          f"| {median('resident', 1)} | {median('switches', 0)} | {median('packets', 1)} "
          f"| {sum(result['lost'] for result in results)} | {median('median', 3)} | {median('p99', 3)} "
          f"| {max(result['worst'] for result in results):.2f} | {median('direct', 3)} | {median('up', 1)} "
          f"| {median('origin', 3)} |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    add_arguments(parser, "how long to measure each, cost and delay", "the last viewer's start")
    parser.add_argument("--transport", choices=["tcp", "udp", "both"], default="tcp", help="of the viewers")
    parser.add_argument("--live-controller", choices=["first", "second"], default="first", help="with the second one "
                        "viewers over UDP get the camera's own packets, which are too large for the others")
    arguments = parser.parse_args()
    arguments.audio = "none"
    numbers = [int(number) for number in arguments.cameras.split(",")]
    results = {number: [] for number in numbers}
    load = os.getloadavg()[0]
    with film(arguments):
        for _ in range(arguments.rounds):
            for number in numbers:
                result = measure(arguments, number)
                results[number].append(result)
                print(f"    {number}: {json.dumps(result)}", file=sys.stderr, flush=True)
    print(f"{circumstances(arguments, load)}, viewers over {arguments.transport}")
    print("\n| cameras | % of a core a camera | threads | memory, MiB | context switches a camera and second "
          "| packets a viewer and second | packets lost | added delay, ms: median | p99 | worst | without a relay, ms "
          "| all relayed after, s | origin, % of a core a camera |\n|---|---|---|---|---|---|---|---|---|---|---|---|---|")
    for number in numbers:
        row(number, results[number])
    if arguments.json:
        arguments.json.write_text(json.dumps(list(results.items()), indent=1))
    return 1 if any(result["lost"] or result["failed"] for found in results.values() for result in found) else 0


if __name__ == "__main__":
    raise SystemExit(main())
