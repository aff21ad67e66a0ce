"""Hostile clients: so many connections of one kind for so many seconds, against a server on a loopback address.

    attackers.py --url rtsp://127.0.0.1:8554/orv/live/1/0 --kind describe --connections 200 --seconds 60

One process with one thread. Every connection sends a chunk of bytes when its time comes, as far as the server takes
it, and comes again when the server ends it, so that the load does not depend on the server's patience. Prints what it
did as one JSON object.
"""

import argparse
import heapq
import itertools
import json
import random
import re
import selectors
import socket
import time

ONVIF = "Require: www.onvif.org/ver20/backchannel\r\n"
LOOPBACK = re.compile(r"rtsp://(127\.[0-9.]+):(\d+)(/.*)")


class Kind:
    """What one kind of attacker sends. `period`: seconds between chunks; `reads`: it takes what the server sends."""

    period = 0.1
    reads = False
    lives = None  # seconds after which it closes by itself
    sips = 0  # bytes that it reads with each chunk where it does not read everything

    def __init__(self, url, number):
        self.url = url
        self.chance = random.Random(number)
        self.cseq = itertools.count(1)

    def request(self, method, url=None, headers=""):
        return f"{method} {url or self.url} RTSP/1.0\r\nCSeq: {next(self.cseq)}\r\n{headers}\r\n".encode()

    def opening(self, peer):
        """Bytes to send first; `peer` may be used, blocking for a moment."""
        return b""

    def chunk(self):
        return b""


class Silent(Kind):
    """Says nothing."""
    period = 1.0


class Drip(Kind):
    """Half a request, byte by byte."""

    def __init__(self, url, number):
        super().__init__(url, number)
        self.text = itertools.cycle(self.request("DESCRIBE")[:-4] + b"\r\nX-Y: z")

    def chunk(self):
        return bytes([next(self.text)])


class Describe(Kind):
    """Pipelines DESCRIBE and never reads."""

    def chunk(self):
        return b"".join(self.request("DESCRIBE") for _ in range(64))


class Sip(Describe):
    """Pipelines DESCRIBE and reads a little, so that the server never sees it read everything."""
    sips = 4000


class Headers(Kind):
    """Header lines without end."""

    def opening(self, peer):
        return self.request("OPTIONS")[:-2]

    def chunk(self):
        return (b"X-Header: " + b"x" * 200 + b"\r\n") * 8


class LongLine(Kind):
    """One line without end."""

    def chunk(self):
        return b"A" * 2000


class Length(Kind):
    """Bodies: one of four gigabytes, or one as long as allowed that never gets whole."""

    def __init__(self, url, number):
        super().__init__(url, number)
        self.huge = number % 2 == 0

    def opening(self, peer):
        size = 4294967295 if self.huge else 16384
        return self.request("SET_PARAMETER", headers=f"Content-Length: {size}\r\n")

    def chunk(self):
        return b"b" * (4096 if self.huge else 160)


class Interleaved(Kind):
    """Interleaved frames of nothing, on every channel, in every length."""

    def chunk(self):
        size = self.chance.choice((0, 1, 11, 12, 200, 1500, 9000, 65535))
        channel = self.chance.randrange(256)
        return b"$" + bytes([channel]) + size.to_bytes(2, "big") + self.chance.randbytes(min(size, 4000))


class Setup(Kind):
    """SETUP after SETUP over UDP, each a new session, without PLAY."""
    reads = True

    def chunk(self):
        port = self.chance.randrange(20000, 60000, 2)
        return self.request("SETUP", f"{self.url}/trackID=0",
                            f"Transport: RTP/AVP;unicast;client_port={port}-{port + 1}\r\n")


class Play(Kind):
    """PLAY over TCP without ever reading."""
    period = 5.0

    def opening(self, peer):
        peer.settimeout(2)
        peer.sendall(self.request("SETUP", f"{self.url}/trackID=0", "Transport: RTP/AVP/TCP;interleaved=0-1\r\n"))
        answer = peer.recv(4096).decode(errors="replace")
        session = re.search(r"Session: ([0-9A-Za-z]+)", answer)
        return self.request("PLAY", headers=f"Session: {session.group(1)}\r\n") if session else b""

    def chunk(self):
        return self.request("GET_PARAMETER")


class Udp(Kind):
    """Junk to the server's RTP and RTCP ports: random bytes, and RTCP that is nearly right."""
    period = 0.02

    def __init__(self, url, number):
        super().__init__(url, number)
        self.target = None
        self.udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.udp.bind((LOCAL, 0))
        self.udp.setblocking(False)

    def opening(self, peer):
        port = self.udp.getsockname()[1]
        peer.settimeout(2)
        peer.sendall(self.request("SETUP", f"{self.url}/trackID=0",
                                  f"Transport: RTP/AVP;unicast;client_port={port}-{port + 1}\r\n"))
        found = re.search(r"server_port=(\d+)", peer.recv(4096).decode(errors="replace"))
        self.target = (peer.getpeername()[0], int(found.group(1))) if found else None
        return b""

    def chunk(self):
        if self.target:
            size = self.chance.choice((0, 1, 7, 8, 12, 28, 400, 1400))
            data = bytearray(self.chance.randbytes(size))
            if size >= 8 and self.chance.random() < 0.7:
                data[0:4] = bytes([0x81 + self.chance.randrange(3), 200 + self.chance.randrange(6)]) + \
                    (size // 4 - 1).to_bytes(2, "big")
            address, port = self.target
            try:
                self.udp.sendto(data, (address, port + self.chance.randrange(2)))
            except OSError:
                pass
        return b""


class Talk(Kind):
    """SETUP of the back channel again and again, with PLAY and audio that is none."""
    reads = True

    def chunk(self):
        return self.request("SETUP", f"{self.url}/trackID=talk",
                            "Transport: RTP/AVP/TCP;interleaved=0-1\r\n" + ONVIF) + \
            b"$\0\0\x20" + self.chance.randbytes(32)


class Options(Kind):
    """OPTIONS after OPTIONS."""
    reads = True

    def chunk(self):
        return b"".join(self.request("OPTIONS") for _ in range(5))


class Churn(Kind):
    """Connects, sends a request and leaves without TEARDOWN."""
    reads = True
    lives = 0.3

    def opening(self, peer):
        return self.request("DESCRIBE")


KINDS = {kind.__name__.lower(): kind for kind in
         (Silent, Drip, Describe, Sip, Headers, LongLine, Length, Interleaved, Setup, Play, Udp, Talk, Options, Churn)}
LOCAL = "127.0.0.2"


class Attack:
    def __init__(self, kind, url, connections):
        self.kind, self.url = kind, url
        host, port, _ = LOOPBACK.fullmatch(url).groups()
        self.address = (host, int(port))
        self.selector = selectors.DefaultSelector()
        self.due = []
        self.ties = itertools.count()
        self.counts = {"kind": kind.__name__.lower(), "connections": connections, "connects": 0, "refused": 0,
                       "ended": 0, "bytes_sent": 0, "bytes_read": 0}
        for number in range(connections):
            self._later(number * 0.001, self._connect, number)

    def run(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            wait = min(self.due[0][0] if self.due else end, end) - time.monotonic()
            for key, _ in self.selector.select(max(0.0, wait)):
                self._read(key.fileobj, key.data)
            while self.due and self.due[0][0] <= time.monotonic() < end:
                _, _, action, arguments = heapq.heappop(self.due)
                action(*arguments)
        return self.counts

    def _later(self, seconds, action, *arguments):
        heapq.heappush(self.due, (time.monotonic() + seconds, next(self.ties), action, arguments))

    def _connect(self, number):
        script = self.kind(self.url, number)
        peer = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        try:
            peer.bind((LOCAL, 0))
            peer.settimeout(2)
            peer.connect(self.address)
            self.counts["connects"] += 1
            left = script.opening(peer)
            peer.setblocking(False)
        except OSError:
            peer.close()
            self.counts["refused"] += 1
            self._later(0.5, self._connect, number)
            return
        state = {"number": number, "script": script, "left": left, "started": time.monotonic()}
        # A client that does not read only checks for the end, with its next chunk.
        if script.reads:
            self.selector.register(peer, selectors.EVENT_READ, state)
        self._turn(peer, state)

    def _turn(self, peer, state):
        script = state["script"]
        if peer.fileno() < 0:
            return
        if script.lives and time.monotonic() - state["started"] > script.lives:
            self._again(peer, state, ended=False)
            return
        if not state["left"]:
            state["left"] = script.chunk()
        try:
            if state["left"]:
                sent = peer.send(state["left"])
                self.counts["bytes_sent"] += sent
                state["left"] = state["left"][sent:]
            elif not (script.reads or script.sips) and peer.recv(1, socket.MSG_PEEK) == b"":
                raise ConnectionResetError
        except BlockingIOError:
            pass
        except OSError:
            self._again(peer, state, ended=True)
            return
        if script.sips:
            self.counts["bytes_read"] += self._sip(peer, script.sips)
        self._later(script.period, self._turn, peer, state)

    @staticmethod
    def _sip(peer, size):
        try:
            return len(peer.recv(size))
        except OSError:
            return 0

    def _read(self, peer, state):
        try:
            data = peer.recv(65536)
        except BlockingIOError:
            return
        except OSError:
            data = b""
        self.counts["bytes_read"] += len(data)
        if not data:
            self._again(peer, state, ended=True)

    def _again(self, peer, state, ended):
        if state["script"].reads:
            self.selector.unregister(peer)
        # Some close properly, others with a reset.
        if state["number"] % 2:
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
        peer.close()
        self.counts["ended"] += ended
        self._later(0.1, self._connect, state["number"])


def main():
    global LOCAL
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--url", required=True)
    parser.add_argument("--kind", required=True, choices=sorted(KINDS))
    parser.add_argument("--connections", type=int, default=200)
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--local", default=LOCAL, help="the loopback address to come from")
    arguments = parser.parse_args()
    if not LOOPBACK.fullmatch(arguments.url) or not arguments.local.startswith("127."):
        parser.error("loopback addresses only")
    LOCAL = arguments.local
    seconds = min(max(arguments.seconds, 0.1), 600)
    print(json.dumps(Attack(KINDS[arguments.kind], arguments.url, min(arguments.connections, 1000)).run(seconds)))


if __name__ == "__main__":
    main()
