#!/usr/bin/env python3
"""Measures what playing a recording costs a running ovrtspd on this machine.

    bench/playback.py --pid PID --begin SECONDS --length SECONDS [--port 8554] [--camera 1] [--sessions 20]

Plays `--sessions` at once over TCP, then opens and ends 30 one after the other. Memory is what a server needs that was
just started: one that has played before has it already.
"""

import argparse
import os
import socket
import threading
import time


class Client:
    """One RTSP connection whose tracks are interleaved."""

    def __init__(self, port):
        self.socket = socket.create_connection(("127.0.0.1", port))
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.socket.settimeout(10)
        self.data = b""
        self.sequence = 0
        self.session = ""

    def take(self, size):
        while len(self.data) < size:
            more = self.socket.recv(1 << 20)
            if not more:
                raise EOFError("the server closed the connection")
            self.data += more
        taken, self.data = self.data[:size], self.data[size:]
        return taken

    def frame(self):
        head = self.take(4)
        return head[1], self.take(head[2] * 256 + head[3])

    def request(self, method, url, headers=""):
        self.sequence += 1
        session = f"Session: {self.session}\r\n" if self.session else ""
        self.socket.sendall(f"{method} {url} RTSP/1.0\r\nCSeq: {self.sequence}\r\n{session}{headers}\r\n".encode())
        while True:
            first = self.take(1)
            self.data = first + self.data
            if first != b"$":
                break
            self.frame()
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            head += self.take(1)
        lines = head.decode().split("\r\n")
        if " 200 " not in lines[0]:
            raise RuntimeError(f"{method} {url}: {lines[0]}")
        fields = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in lines[1:])}
        self.take(int(fields.get("content-length", 0)))
        return fields


def start(options, begin, length):
    """Plays an interval. Returns the client and what each step took, in milliseconds."""
    client = Client(options.port)
    first = options.begin + begin
    client.url = f"rtsp://127.0.0.1:{options.port}/orv/playback/{options.camera}_{first}_{first + length}"
    times = [time.perf_counter()]
    client.request("DESCRIBE", client.url)
    times.append(time.perf_counter())
    for track in (0, 1):
        fields = client.request("SETUP", f"{client.url}/trackID={track}",
                                f"Transport: RTP/AVP/TCP;unicast;interleaved={2 * track}-{2 * track + 1}\r\n")
        client.session = fields["session"].split(";")[0]
    times.append(time.perf_counter())
    client.request("PLAY", client.url)
    times.append(time.perf_counter())
    while client.frame()[0] != 0:
        pass
    steps = [(times[i + 1] - times[i]) * 1000 for i in range(3)]
    return client, steps + [(time.perf_counter() - times[2]) * 1000]


def usage(pid):
    """Seconds of processor time, resident KiB and open descriptors of a process."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        resident = next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))
    seconds = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    return seconds, resident, len(os.listdir(f"/proc/{pid}/fd"))


def drain(client):
    try:
        while client.socket.recv(1 << 20):
            pass
    except OSError:
        pass


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--pid", type=int, required=True, help="of the server")
    parser.add_argument("--begin", type=int, required=True, help="of the recording, Unix seconds")
    parser.add_argument("--length", type=int, required=True, help="of the recording, seconds; at least 60")
    parser.add_argument("--port", type=int, default=8554)
    parser.add_argument("--camera", type=int, default=1)
    parser.add_argument("--sessions", type=int, default=20)
    options = parser.parse_args()

    before = usage(options.pid)
    clients = [start(options, i * (options.length - 30) // options.sessions, 30)[0] for i in range(options.sessions)]
    for client in clients:
        threading.Thread(target=drain, args=(client,), daemon=True).start()
    time.sleep(2)
    first = usage(options.pid)
    time.sleep(10)
    second = usage(options.pid)
    print(f"memory of a session: {(second[1] - before[1]) / options.sessions:.0f} KiB")
    print(f"{options.sessions} sessions: {(second[0] - first[0]) * 10:.1f} % of a core")
    for client in clients:
        client.socket.shutdown(socket.SHUT_RDWR)
    time.sleep(2)
    print(f"descriptors left by vanished clients: {usage(options.pid)[2] - before[2]}")

    iterations = []
    for i in range(30):
        client, steps = start(options, i % (options.length - 20), 20)
        iterations.append(steps)
        client.request("TEARDOWN", client.url)
        client.socket.close()
    for name, values in zip(("DESCRIBE", "both SETUP", "PLAY to answer", "PLAY to first frame"), zip(*iterations)):
        print(f"{name}: median {sorted(values)[len(values) // 2]:.2f} ms, worst {max(values):.2f} ms")


if __name__ == "__main__":
    main()
