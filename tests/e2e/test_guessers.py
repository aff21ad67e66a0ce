"""10,000 wrong passwords from 50 addresses while 100 viewers watch."""

import base64
import json
import pathlib
import re
import selectors
import socket
import sys
import threading
import time

import pytest
from rtsp_client import RtspClient
from server import wait_until

sys.path.append(str(pathlib.Path(__file__).parents[1] / "packaging"))
import fail2ban_filter

ADDRESSES = [f"127.0.8.{number}" for number in range(1, 51)]
ATTEMPTS = 200  # of each
SIDE_BY_SIDE = 6
VIEWERS = 100
MAX_DELAY = 2
SLOWEST = 1.0  # seconds for an answer, or between two packets, beside those in which the server had no processor

CONFIG = f"""
port = 0
log-format = "FORMAT"
[auth]
basic = "always"
exempt-loopback = false
max-delay = {MAX_DELAY}
[[user]]
name = "viewer"
password = "correct-horse"
[[camera]]
id = 1
[[camera.stream]]
width = 160
height = 120
frame-rate = 10
gop = 10
bit-rate = 100
audio = "none"
"""


def basic(user, password):
    return {"Authorization": "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()}


class Viewer(RtspClient):
    def request(self, method, url=None, headers=None):
        return super().request(method, url, {**basic("viewer", "correct-horse"), **(headers or {})})


class Watchers(threading.Thread):
    """Viewers, of which each keeps its session alive by requests. Measures the longest time without a packet, the
    slowest answer, and what was lost."""

    def __init__(self, url):
        super().__init__()
        self.viewers = [Viewer(url) for _ in range(VIEWERS)]
        for viewer in self.viewers:
            viewer.open()
        self.done = threading.Event()
        self.longest_gap = self.slowest_answer = 0.0
        self.packets = self.lost = 0
        self.failure = None

    def run(self):
        try:
            self._watch()
        except Exception as failure:
            self.failure = failure
        finally:
            for viewer in self.viewers:
                viewer.close()

    def _watch(self):
        selector = selectors.DefaultSelector()
        for viewer in self.viewers:
            selector.register(viewer.socket, selectors.EVENT_READ, viewer)
            viewer.at = time.monotonic()
            viewer.last = viewer.rtp[-1].sequence if viewer.rtp else None
            viewer.rtp.clear()
        turn = 0
        while not self.done.is_set():
            for key, _ in selector.select(0.05):
                self._take(key.data)
            turn = (turn + 1) % VIEWERS
            started = time.monotonic()
            assert self.viewers[turn].request("GET_PARAMETER").status == 200
            self.slowest_answer = max(self.slowest_answer, time.monotonic() - started)
        assert self.packets > 0

    def _take(self, viewer):
        viewer._receive_once(time.monotonic() + 1, None)
        now = time.monotonic()
        for packet in viewer.rtp:
            if viewer.last is not None:
                self.lost += (packet.sequence - viewer.last - 1) % 65536
            viewer.last = packet.sequence
            self.packets += 1
        if viewer.rtp:
            self.longest_gap = max(self.longest_gap, now - viewer.at)
            viewer.at = now
        viewer.rtp.clear()
        viewer.rtcp.clear()


class Guesser:
    """One address: so many wrong passwords, some side by side, a connection for each."""

    def __init__(self, server, address, selector):
        self.server, self.address, self.selector = server, address, selector
        self.left = ATTEMPTS
        self.statuses = []

    def step(self):
        self.left -= 1
        connection = socket.socket()
        connection.bind((self.address, 0))
        connection.connect((self.server.address, self.server.port))
        credentials = basic("viewer", f"guess-{self.left}")["Authorization"]
        connection.sendall(f"DESCRIBE {self.server.url()} RTSP/1.0\r\nCSeq: 1\r\nAuthorization: {credentials}\r\n\r\n".encode())
        self.selector.register(connection, selectors.EVENT_READ, self)

    def answered(self, connection):
        self.statuses.append(int(connection.recv(65536).split(b" ", 2)[1]))
        self.selector.unregister(connection)
        connection.close()
        if self.left:
            self.step()


def guess(server):
    """Returns the statuses of all answers, by address."""
    selector = selectors.DefaultSelector()
    guessers = [Guesser(server, address, selector) for address in ADDRESSES]
    for guesser in guessers:
        for _ in range(SIDE_BY_SIDE):
            guesser.step()
    end = time.monotonic() + 100
    while selector.get_map():
        assert time.monotonic() < end, "every attempt is answered"
        for key, _ in selector.select(1):
            key.data.answered(key.fileobj)
    return {guesser.address: guesser.statuses for guesser in guessers}


def memory(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.M).group(1))


def events(server, json_lines):
    """(event, fields) of each audit line."""
    found = []
    for line in server.log().splitlines():
        if json_lines:
            # The command line's own warning is no line of the log.
            fields = json.loads(line) if line.startswith("{") else {}
            if "event" in fields:
                found.append((fields["event"], fields))
        elif match := re.match(r"\S+ info +\[\d+\] audit: (\S+) ?(.*)", line):
            fields = dict(re.findall(r'(\w+)=(?:"([^"]*)"|\S+)', match.group(2)))
            fields.update(re.findall(r"(\w+)=([^\s\"]+)", match.group(2)))
            found.append((match.group(1), fields))
    return found


@pytest.mark.parametrize("form", ["text", "json"])
def test_ten_thousand_wrong_passwords_disturb_nobody(serve, form):
    server = serve(CONFIG.replace("FORMAT", form))
    server.allow_problem("everybody can read it|may do everything")
    watchers = Watchers(server.url())
    watchers.start()
    try:
        # What viewers see without guessers, to compare.
        wait_until(lambda: watchers.packets > 40 * VIEWERS or watchers.failure, 30, "the viewers receive")
        calm, watchers.longest_gap = watchers.longest_gap, 0.0
        before = memory(server.pid)
        started = time.monotonic()
        statuses = guess(server)
        seconds = time.monotonic() - started
        grown = memory(server.pid) - before
        # The user still gets in: at once from where he logged in, and with a delay at most from elsewhere.
        for source in ("127.0.0.1", "127.0.9.9"):
            started = time.monotonic()
            with socket.create_connection((server.address, server.port), timeout=10, source_address=(source, 0)) as late:
                credentials = basic("viewer", "correct-horse")["Authorization"]
                late.sendall(f"DESCRIBE {server.url()} RTSP/1.0\r\nCSeq: 1\r\nAuthorization: {credentials}\r\n\r\n".encode())
                assert late.recv(65536).startswith(b"RTSP/1.0 200 ")
            assert time.monotonic() - started < SLOWEST + server.waited() + (0 if source == "127.0.0.1" else MAX_DELAY)
    finally:
        watchers.done.set()
        watchers.join(30)
    assert watchers.failure is None, watchers.failure
    assert watchers.lost == 0
    allowed = SLOWEST + server.waited()
    assert watchers.longest_gap < allowed and watchers.slowest_answer < allowed
    assert grown < 8192

    for address, found in statuses.items():
        assert len(found) == ATTEMPTS and set(found) == {401, 503}, f"{address}: {found}"
        assert found.count(401) <= 10, "passwords that were compared"
    server.stop()
    audited = events(server, form == "json")
    logged = [fields["address"] for event, fields in audited if event in ("authentication-failed", "authentication-refused")]
    suppressed = sum(int(fields["lines"]) for event, fields in audited
                     if event == "suppressed" and fields["of"].startswith("authentication-"))
    assert len(logged) + suppressed == len(ADDRESSES) * ATTEMPTS, "every attempt is logged or counted"
    assert set(logged) == set(ADDRESSES)
    assert len(server.log().splitlines()) < 50 * len(ADDRESSES) + 4 * VIEWERS, "the log stays readable"
    assert sorted(fail2ban_filter.matches(server.log())) == sorted(logged)
    counted = fail2ban_filter.counted_by_fail2ban(server.log_path)
    assert counted in (None, len(logged))
    assert "correct-horse" not in server.log() and "guess-" not in server.log()
    print(f"{seconds:.1f} s; {watchers.packets} packets to {VIEWERS} viewers, none lost; longest time between two "
          f"{watchers.longest_gap:.2f} s ({calm:.2f} s before); slowest answer {watchers.slowest_answer:.2f} s; {grown} KiB more; "
          f"{len(server.log().splitlines())} lines; {len(logged)} attempts logged and {suppressed} counted, "
          f"{'not tried' if counted is None else counted} by fail2ban-regex")
