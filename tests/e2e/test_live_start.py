"""How viewers of a live stream start: what is sent of the past, how fast, and with which times."""

import time

import pytest
from recordings import NTP_EPOCH
from rtsp_client import RtspClient

pytestmark = pytest.mark.usefixtures("real_time")

GOP_SECONDS = 2
STARTS = ["burst", "paced", "key-frame"]
CONFIG = "port = 0\nstart-rate = 2\n\n[[camera]]\nid = 1\n" + "".join(f"""
[[camera.stream]]
id = {number}
width = 160
height = 120
bit-rate = 200
gop = {GOP_SECONDS * 25}
start = "{start}"
""" for number, start in enumerate(STARTS))


@pytest.fixture
def server(serve):
    return serve(CONFIG)


class Arrival(RtspClient):
    """Notes when each packet came."""

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.at = []

    def _media(self, track, rtcp, data):
        super()._media(track, rtcp, data)
        if not rtcp:
            self.at.append(time.monotonic())

    def span(self, seconds):
        """Seconds of video that came within so many seconds from the first packet."""
        came = [packet.timestamp for packet, at in zip(self.rtp, self.at)
                if packet.track == self.video() and at - self.at[0] <= seconds]
        return max((stamp - came[0] + 2**31) % 2**32 - 2**31 for stamp in came) / 90000


def start_inside_a_gop(server, stream, transport="tcp", headers=None):
    """A viewer that comes 1.2 s behind a key frame, and the first second of what it gets."""
    url = server.url(stream=stream)
    with RtspClient(url) as watcher, Arrival(url, transport) as client:
        watcher.open()
        client.describe()
        client.setup_all(headers)
        seen = len(watcher.rtp)
        watcher.receive(lambda: any(5 in packet.nal_types() for packet in watcher.rtp[seen:] if packet.track == 0),
                        "a key frame")
        watcher.receive_for(1.2)
        client.play()
        client.receive_for(1)
    return client


def reports(client):
    """The first sender report of each track: seconds since 1970, RTP timestamp, how many RTP packets came before it."""
    found = {}
    for (track, data), before in zip(client.rtcp, client.rtcp_after):
        if data[1] == 200 and track not in found:
            ntp = int.from_bytes(data[8:12], "big") - NTP_EPOCH + int.from_bytes(data[12:16], "big") / 2**32
            found[track] = (ntp, int.from_bytes(data[16:20], "big"), before)
    return found


def test_burst_start_sends_the_past_at_once(server):
    client = start_inside_a_gop(server, STARTS.index("burst"))
    assert client.span(0.15) > 1


def test_reports_of_both_tracks_come_first_and_have_the_true_time(server):
    client = start_inside_a_gop(server, STARTS.index("burst"))
    now = time.time()
    received = reports(client)
    assert len(received) == 2 and all(before == 0 for _, _, before in received.values())
    for track, rate in ((0, 90000), (1, 8000)):
        ntp, timestamp, _ = received[track]
        first = next(packet for packet in client.rtp if packet.track == track)
        age = ((timestamp - first.timestamp + 2**31) % 2**32 - 2**31) / rate
        assert 1 < age < GOP_SECONDS, "the first unit was captured before the report"
        assert now - 2 < ntp < now


def test_a_paced_start_keeps_to_its_rate(server, transport):
    client = start_inside_a_gop(server, STARTS.index("paced"), transport)
    for seconds in (0.2, 0.4, 0.8):
        assert client.span(seconds) <= 2 * seconds + 0.1
    assert client.span(0.8) > 1, "it is faster than real time"


def test_key_frame_start_sends_nothing_of_the_past(server, transport):
    client = start_inside_a_gop(server, STARTS.index("key-frame"), transport)
    assert 5 in [kind for packet in client.packets(0)[:4] for kind in packet.nal_types()]
    assert client.span(0.5) == pytest.approx(0.5, abs=0.15)


def test_a_client_may_ask_for_a_start_of_its_own(server, transport):
    client = start_inside_a_gop(server, STARTS.index("burst"), transport, {"Live-Start": "key-frame"})
    assert client.span(0.5) == pytest.approx(0.5, abs=0.15)


@pytest.mark.parametrize("start", STARTS)
def test_a_relay_gets_its_time_right_from_any_start(server, serve, start):
    """By its reports, a relay sends what was captured now, although the other server is inside a GOP."""
    with RtspClient(server.url(stream=STARTS.index(start))) as watcher:
        watcher.open()
        seen = len(watcher.rtp)
        watcher.receive(lambda: any(5 in packet.nal_types() for packet in watcher.rtp[seen:] if packet.track == 0),
                        "a key frame")
        watcher.receive_for(1)
        relay = serve(f"""
port = 0
[[camera]]
id = 1
[[camera.stream]]
source = "rtsp"
location = "{server.url(stream=STARTS.index(start))}"
""")
        with Arrival(relay.url()) as client:
            client.open()
            client.receive(lambda: len(client.packets(client.video())) > 0, "video")
            client.receive_for(1)
    assert client.span(0.5) == pytest.approx(0.5, abs=0.2), "neither a burst of its past nor a stall"
