"""What ONVIF clients get who require replay, and nobody else."""

import dataclasses
import time

import pytest
import recordings
from frames import RATE
from recordings import NTP_EPOCH, SECONDS, finish
from rtsp_client import RtspClient
from wire import Capture

IDENTIFIER = 0xABAC
REPLAY = {"Require": "onvif-replay"}


@dataclasses.dataclass
class Stamp:
    time: float  # Unix seconds
    clean: bool
    end: bool
    discontinuity: bool
    sequence: int


def stamp(frame):
    """The extension of a frame's first packet; its others have none."""
    profile, data = frame.packets[0].extension
    assert profile == IDENTIFIER and len(data) == 12
    assert all(packet.extension is None for packet in frame.packets[1:])
    seconds, fraction = int.from_bytes(data[:4], "big"), int.from_bytes(data[4:8], "big")
    return Stamp(seconds - NTP_EPOCH + fraction / 2**32, bool(data[8] & 0x80), bool(data[8] & 0x40),
                 bool(data[8] & 0x20), data[9])


def replay(recorded, headers=None):
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all()
        client.play({**REPLAY, **(headers or {})})
        finish(client)
    return client


def test_every_frame_tells_when_it_was_taken(recorded):
    client = replay(recorded)
    frames = recorded.frames(client)
    assert [frame.number for frame in frames] == [frame.number for frame in recorded.whole]
    stamps = [stamp(frame) for frame in frames]
    begin = recorded.start
    for count, told in enumerate(stamps):
        assert told.time == pytest.approx(begin + count / RATE, abs=0.002)
    assert [told.clean for told in stamps] == [frame.key for frame in frames]
    assert {told.sequence for told in stamps} == {client.cseq}
    assert [told.end for told in stamps] == [False] * (len(stamps) - 1) + [True]


def test_the_time_is_the_one_that_live_viewers_are_told(recorded):
    """A frame's wall clock by the sender reports of the live stream and by the recording, of what is recorded now."""
    with RtspClient(recorded.server.url(recordings.CAMERA)) as live:
        live.open()
        live.receive(lambda: live.rtcp and len(recorded.film.frames(live.rtp)) >= 40, "frames and a sender report")
        report = next(data for _, data in live.rtcp if data[1] == 200)
        ntp = int.from_bytes(report[8:12], "big") - NTP_EPOCH + int.from_bytes(report[12:16], "big") / 2**32
        base = int.from_bytes(report[16:20], "big")
        times = {frame.number: ntp + ((frame.timestamp - base + 2**31) % 2**32 - 2**31) / 90000
                 for frame in recorded.film.frames(live.rtp)}
    first = int(min(times.values()))
    recordings.wait_until(lambda: recordings.status(recorded.server, first + 3, first + 4) == 200, 20, "it is recorded")
    with RtspClient(recordings.url(recorded.server, first, first + 3)) as client:
        client.describe()
        client.setup_all()
        client.play(REPLAY)
        finish(client)
        told = {frame.number: stamp(frame).time for frame in recorded.film.frames(client.rtp)}
    both = times.keys() & told.keys()
    assert len(both) >= 25
    for number in both:
        assert told[number] == pytest.approx(times[number], abs=0.02), number


def test_setup_may_require_it_for_the_session(recorded):
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all(REPLAY)
        client.play({"Range": "npt=7-"})
        finish(client)
        assert all(stamp(frame).time > 0 for frame in recorded.frames(client))


def test_a_seek_is_a_discontinuity(recorded):
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all()
        client.play(REPLAY)
        client.receive(lambda: len(client.rtp) > 20, "packets")
        client.play({**REPLAY, "Range": "npt=6-", "Immediate": "yes"})
        first = client.played_at
        finish(client)
        stamps = [stamp(frame) for frame in recorded.film.frames(client.rtp[first:])]
        assert [told.discontinuity for told in stamps] == [True] + [False] * (len(stamps) - 1)
        assert {told.sequence for told in stamps} == {client.cseq}


def test_without_rate_control_it_comes_as_fast_as_it_is_taken(recorded):
    begin = time.monotonic()
    client = replay(recorded, {"Rate-Control": "no"})
    assert time.monotonic() - begin < SECONDS / 4
    frames = recorded.frames(client)
    assert [frame.number for frame in frames] == [frame.number for frame in recorded.whole]


def test_key_frames_alone(recorded):
    keys = [frame.number for frame in recorded.whole if frame.key]
    for frames, numbers in {"intra": keys, "intra/3000": keys[::3]}.items():
        client = replay(recorded, {"Rate-Control": "no", "Frames": frames})
        assert [frame.number for frame in recorded.frames(client)] == numbers, frames


def test_nothing_changes_for_those_who_do_not_require_it(recorded):
    begin = time.monotonic()
    client = recorded.play(headers={"Range": "npt=4-", "Rate-Control": "no", "Frames": "intra"})
    assert time.monotonic() - begin > SECONDS / 4
    assert all(packet.extension is None for packet in client.rtp)
    assert not all(frame.key for frame in recorded.frames(client))


def test_tshark_sees_the_extension(recorded, tmp_path):
    with RtspClient(recorded.url) as client, Capture(tmp_path, recorded.server.port, []) as capture:
        client.describe()
        client.setup_all()
        client.play({**REPLAY, "Range": "npt=7-"})
        finish(client)
    packets = capture.dissect("rtp.ext.profile", "rtp.ext.profile", "rtp.ext.len", "rtp.hdr_ext")
    assert len(packets) >= 5
    assert {int(packet["rtp.ext.profile"][0], 0) for packet in packets} == {IDENTIFIER}
    assert {int(packet["rtp.ext.len"][0], 0) for packet in packets} == {3}


def test_unknown_features_are_refused(recorded):
    with RtspClient(recorded.url) as client:
        response = client.request("DESCRIBE", headers={"Require": "onvif-replay, implicit-play"})
        assert response.status == 551 and response.headers["unsupported"] == "implicit-play"
