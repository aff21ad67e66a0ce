"""Twenty recordings are played at once, each from its own instant to its own end, at a small price."""

import concurrent.futures
import math
import pathlib
import re
import time

import recordings
from frames import RATE
from processor import Stopwatch
from recordings import finish
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until

SESSIONS = 20


def intervals():
    """Begin and length of each session's interval, in seconds of the recording; no two alike."""
    found = [(number % 7, 2 + number // 7) for number in range(SESSIONS)]
    assert len(set(found)) == SESSIONS
    return found


def connect(recorded, begin, length, transport):
    start = recorded.interval.begin + begin
    client = RtspClient(recordings.url(recorded.server, start, start + length), transport)
    client.describe()
    client.setup_all()
    return client


def expected(recorded, begin, length):
    """The film's frames of an interval: from the key frame at or before its begin, to the last one before its end."""
    timeline = recorded.timeline
    behind = timeline.first + math.ceil((begin + recorded.lead + length) * RATE - 0.01)
    return list(range(timeline.key_before(begin + recorded.lead), behind))


def cpu_seconds(pid):
    """What all threads of a process have used so far."""
    return sum(int(task.read_text().split()[0]) for task in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat")) / 1e9


def resident_bytes(pid):
    return int(re.search(r"VmRSS:\s+(\d+) kB", pathlib.Path(f"/proc/{pid}/status").read_text()).group(1)) * 1024


def close_all(server, clients):
    for client in clients:
        assert client.request("TEARDOWN").status == 200
        client.close()
    wait_until(lambda: server.sessions() == 0, 5, "the sessions are gone")


def test_opening_a_session_is_quick_and_small(recorded):
    """Stands first, so that the server has never had so many sessions before."""
    server = recorded.server

    def open_all(sessions_to_open):
        clients, waits = [], []
        for begin, length in sessions_to_open:
            client = connect(recorded, begin, length, "tcp")
            stopwatch = Stopwatch(server.pid)
            client.play({})
            client.receive(lambda: client.rtp, "the first frame")
            waits.append(stopwatch.read())
            clients.append(client)
        return clients, waits

    close_all(server, open_all(intervals()[:1])[0])  # what the first one costs stays: threads, loaded code
    before, used = resident_bytes(server.pid), cpu_seconds(server.pid)
    clients, waits = open_all(intervals())
    size = (resident_bytes(server.pid) - before) / SESSIONS
    cost = (cpu_seconds(server.pid) - used) / SESSIONS
    close_all(server, clients)
    print(f"PLAY to the first packet: {max(waits) * 1000:.1f} ms at most; {cost * 1000:.2f} ms of a core and "
          f"{size / 1024:.0f} KiB each")
    assert max(waits) < 0.2
    assert cost < 0.005
    assert size < 2 * 1024 * 1024


def test_each_of_twenty_sessions_gets_the_frames_of_its_interval(recorded, transport):
    server = recorded.server
    clients = [connect(recorded, begin, length, transport) for begin, length in intervals()]
    used, started = cpu_seconds(server.pid), time.monotonic()

    def watch(client):
        client.play({})
        finish(client)

    with concurrent.futures.ThreadPoolExecutor(SESSIONS) as pool:
        for ended in [pool.submit(watch, client) for client in clients]:
            ended.result()
    cores = (cpu_seconds(server.pid) - used) / (time.monotonic() - started)

    for client, (begin, length) in zip(clients, intervals()):
        packets = client.packets(client.video())
        if transport == "udp":
            first = packets[0].sequence
            packets.sort(key=lambda packet: (packet.sequence - first) & 0xFFFF)
        assert_no_gap(packets)
        numbers = [frame.number for frame in recorded.film.frames(packets)]
        assert numbers == expected(recorded, begin, length), (begin, length)
    close_all(server, clients)
    print(f"{SESSIONS} sessions over {transport}: {cores:.3f} cores")
    assert cores < 1
