"""Recordings are played back frame by frame as they were taken: over the borders of segments, from the frame that
was asked for, at the speed that was asked for, to the end."""

import calendar
import itertools
import math
import re
import statistics
import time

import pytest
import recordings
from frames import RATE
from processor import Stopwatch
from recordings import SECONDS, byes, finish, npt
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until

PERIOD = 90000 // RATE


def numbers(frames):
    return [frame.number for frame in frames]


def assert_successive(frames):
    """Every frame of the film in turn, each at its time."""
    assert numbers(frames) == list(range(frames[0].number, frames[0].number + len(frames)))
    steps = {(b.timestamp - a.timestamp) & 0xFFFFFFFF for a, b in itertools.pairwise(frames)}
    assert steps == {PERIOD}


def clock(seconds):
    """Rounded up: a key frame's time that was rounded down would ask for the one before it."""
    whole, milliseconds = divmod(math.ceil(seconds * 1000 - 0.0001), 1000)
    return f"{time.strftime('%Y%m%dT%H%M%S', time.gmtime(whole))}.{milliseconds:03}Z"


def seconds_of(text):
    whole, fraction = text.rstrip("Z").split(".")
    return calendar.timegm(time.strptime(whole, "%Y%m%dT%H%M%S")) + float("0." + fraction)


def test_description_has_the_length(recorded):
    with RtspClient(recorded.url) as client:
        text = client.describe()
    assert SECONDS <= recordings.length(text) < SECONDS + 1, "from the key frame before"
    assert re.search(rf"^a=length:npt={recordings.length(text):.6f}".rstrip("0").rstrip("."), text, re.M), text
    assert text.count("a=range:") == 1


def test_every_frame_is_played_once_and_in_time(recorded, transport):
    client = recorded.play(transport)
    packets = client.packets(client.video())
    if transport == "udp":
        first = packets[0].sequence
        packets.sort(key=lambda packet: (packet.sequence - first) & 0xFFFF)
    assert_no_gap(packets)
    frames = recorded.film.frames(packets)
    assert frames[0].key
    assert_successive(frames)
    assert npt(client.answer) == (0, recorded.seconds), "as described"
    assert len(frames) == pytest.approx(recorded.seconds * RATE, abs=1)
    assert [track for track, _ in client.rtcp[-1:]] == [client.video()] and client.rtcp_after[-1] == len(client.rtp), \
        "the BYE is the last"


def test_answer_names_the_first_packet(recorded, transport):
    with RtspClient(recorded.url, transport) as client:
        client.describe()
        client.setup_all()
        info = client.play({"Range": "npt=3.2-"})
        client.receive(lambda: len(client.rtp) > 0, "a packet")
        sequence, timestamp = info[client.video()]
        assert (client.rtp[0].sequence, client.rtp[0].timestamp) == (sequence, timestamp)
        assert client.rtp[0].ssrc == client.tracks[client.video()].ssrc
        assert client.played_at == 0, "the answer comes before the first packet"


def test_the_first_frame_comes_without_delay(recorded):
    waits = []
    for start in range(7):
        with RtspClient(recorded.url) as client:
            client.describe()
            client.setup_all()
            stopwatch = Stopwatch(recorded.server.pid)
            client.play({"Range": f"npt={start}.3-"})
            client.receive(lambda: any(packet.marker for packet in client.rtp), "a whole frame")
            waits.append(stopwatch.read())
    assert statistics.median(waits) < 0.2, waits


@pytest.mark.parametrize("requested", [0.5, 1.0, 2.04, 3.98, 5.5, 7.9])
@pytest.mark.parametrize("unit", ["npt", "clock"])
def test_a_seek_lands_on_the_key_frame_before(recorded, unit, requested):
    base = recorded.start
    value = f"npt={requested}-" if unit == "npt" else f"clock={clock(base + requested)}-"
    client = recorded.play(headers={"Range": value, "Speed": "8"})
    frames = recorded.frames(client)
    expected = max(recorded.timeline.key_before(requested), recorded.whole[0].number)
    assert frames[0].number == expected
    assert_successive(frames)
    assert frames[-1].number == recorded.whole[-1].number
    begin = (expected - recorded.timeline.first) / RATE
    if unit == "npt":
        assert npt(client.answer) == (pytest.approx(begin, abs=0.002), recorded.seconds)
    else:
        start, end = re.fullmatch(r"clock=(\w+[.]\w+)-(\w+[.]\w+)", client.answer.headers["range"]).groups()
        assert seconds_of(start) == pytest.approx(base + begin, abs=0.002)
        assert end == clock(recorded.interval.begin + SECONDS)


def test_a_range_ends_where_it_says(recorded):
    client = recorded.play(headers={"Range": "npt=2-4.5", "Speed": "8"})
    frames = recorded.frames(client)
    assert npt(client.answer)[1] == 4.5
    assert abs(frames[-1].number - (recorded.timeline.number(4.5) - 1)) <= 1


def test_seek_while_playing(recorded):
    with RtspClient(recorded.url) as client:
        client.open()
        client.receive(lambda: len(recorded.frames(client)) > 10, "frames")
        client.play({"Range": "npt=6-"})
        first = client.played_at
        finish(client)
        assert_no_gap(client.packets(client.video()))
        frames = recorded.frames(client, first)
        assert frames[0].number == recorded.timeline.key_before(6)
        assert_successive(frames)
        before = recorded.film.frames(client.rtp[:first])
        assert frames[0].timestamp != before[-1].timestamp


def test_pause_and_play_lose_no_frame(recorded):
    with RtspClient(recorded.url) as client:
        client.open()
        middle = recorded.timeline.number(SECONDS / 2)
        client.receive(lambda: client.rtp and recorded.frames(client)[-1].number > middle, "half of the frames")
        assert client.request("PAUSE").status == 200
        count = len(client.rtp)
        client.receive_for(0.5)
        assert len(client.rtp) == count, "nothing comes after the answer to PAUSE"
        client.play({})
        assert SECONDS / 2 < npt(client.answer)[0] < SECONDS
        finish(client)
        assert_no_gap(client.rtp)
        assert numbers(recorded.frames(client)) == numbers(recorded.whole)


def test_pause_point(recorded):
    with RtspClient(recorded.url) as client:
        client.open()
        assert client.request("PAUSE", headers={"Range": "npt=3"}).status == 200
        last = recorded.timeline.number(3) - 1
        client.receive(lambda: recorded.frames(client)[-1].number >= last if client.rtp else False, "the pause point")
        client.receive_for(0.5)
        assert abs(recorded.frames(client)[-1].number - last) <= 1
        assert client.request("PAUSE", headers={"Range": "npt=100"}).status == 457
        client.play({})
        finish(client)
        assert numbers(recorded.frames(client)) == numbers(recorded.whole)


@pytest.mark.parametrize("header", ["Scale", "Speed"])
def test_twice_as_fast_takes_half_the_time(recorded, header):
    started, stopwatch = time.monotonic(), Stopwatch(recorded.server.pid)
    client = recorded.play(headers={header: "2"})
    seconds, with_a_processor = time.monotonic() - started, stopwatch.read()
    assert client.answer.headers[header.lower()] == "2.0"
    # Up to a second more than the interval: its play starts with the key frame before.
    half = len(recorded.whole) / RATE / 2
    assert seconds > 0.9 * half and with_a_processor < 1.1 * half
    frames = recorded.frames(client)
    assert numbers(frames) == numbers(recorded.whole)
    step = PERIOD // 2 if header == "Scale" else PERIOD
    assert {b.timestamp - a.timestamp for a, b in itertools.pairwise(frames)} == {step}


def test_fast_forward_plays_key_frames(recorded):
    client = recorded.play(headers={"Scale": "8"})
    assert client.answer.headers["scale"] == "8.0"
    frames = recorded.frames(client)
    assert all(frame.key for frame in frames)
    assert numbers(frames) == [frame.number for frame in recorded.whole if frame.key]


def test_play_after_the_end_starts_again(recorded):
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all()
        client.play({"Range": "npt=7-"})
        finish(client)
        count = len(client.rtp)
        client.play({})
        client.receive(lambda: len(client.rtp) > count, "it plays again")
        assert recorded.film.frames(client.rtp[count:count + 50])[0].number == recorded.whole[0].number
        assert_no_gap(client.rtp)


def test_ranges_without_recordings_are_refused(recorded):
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all()
        for requested in ["npt=5-3", f"npt={recorded.seconds + 0.001:.3f}-", "clock=19961108T142300Z-19961108T142400Z", "smpte=0:01:00-"]:
            assert client.request("PLAY", headers={"Range": requested}).status == 457, requested
        assert client.request("PLAY", headers={"Scale": "fast"}).status == 400
        assert client.request("PLAY", headers={"Range": "npt=7-"}).status == 200


def test_intervals_and_cameras_without_recordings_are_not_found(recorded):
    begin = recorded.interval.begin
    for camera, first, last in [(recordings.CAMERA, 1000, 2000), (recordings.CAMERA, begin + 5, begin + 5), (77, begin, begin + 5)]:
        with RtspClient(recordings.url(recorded.server, first, last, camera)) as client:
            assert client.request("DESCRIBE").status == 404, (camera, first, last)


def test_a_partly_recorded_interval_plays_its_recorded_part(recorded):
    early = recorded.interval.begin - 3600
    with RtspClient(recordings.url(recorded.server, early, recorded.interval.begin + 2)) as client:
        client.open()
        begin, end = npt(client.answer)
        assert begin == 0 and 2 < end < 22, "from the first frame that was recorded"
        finish(client)
        frames = recorded.frames(client)
        assert_successive(frames)
        assert abs(frames[-1].number - (recorded.timeline.number(recorded.lead + 2) - 1)) <= 1


def test_a_vanished_client_leaves_nothing(recorded):
    clients = [RtspClient(recorded.url) for _ in range(5)]
    for client in clients:
        client.open()
    for client in clients:
        client.close()
    wait_until(lambda: recorded.server.sessions() == 0, 10, "the sessions end with their connections")
    assert len(byes(recorded.play(headers={"Range": "npt=7-"}))) == 1
