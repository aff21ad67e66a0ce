"""The header extension for clients that require ONVIF replay, and for no others."""

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


def test_every_frame_has_its_capture_time(recorded):
    client = replay(recorded)
    frames = recorded.frames(client)
    assert [frame.number for frame in frames] == [frame.number for frame in recorded.whole]
    stamps = [stamp(frame) for frame in frames]
    begin = recorded.start
    for count, stamped in enumerate(stamps):
        assert stamped.time == pytest.approx(begin + count / RATE, abs=0.002)
    assert [stamped.clean for stamped in stamps] == [frame.key for frame in frames]
    assert {stamped.sequence for stamped in stamps} == {client.cseq}
    assert [stamped.end for stamped in stamps] == [False] * (len(stamps) - 1) + [True]


def test_capture_time_is_that_of_the_live_sender_reports(recorded):
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
        recorded_times = {frame.number: stamp(frame).time for frame in recorded.film.frames(client.rtp)}
    both = times.keys() & recorded_times.keys()
    assert len(both) >= 25
    for number in both:
        assert recorded_times[number] == pytest.approx(times[number], abs=0.02), number


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
        assert [stamped.discontinuity for stamped in stamps] == [True] + [False] * (len(stamps) - 1)
        assert {stamped.sequence for stamped in stamps} == {client.cseq}


def test_without_rate_control_packets_come_as_fast_as_the_client_reads(recorded):
    started = time.monotonic()
    client = replay(recorded, {"Rate-Control": "no"})
    assert time.monotonic() - started < SECONDS / 4
    frames = recorded.frames(client)
    assert [frame.number for frame in frames] == [frame.number for frame in recorded.whole]


def test_key_frames_alone(recorded):
    keys = [frame.number for frame in recorded.whole if frame.key]
    for frames, numbers in {"intra": keys, "intra/3000": keys[::3]}.items():
        client = replay(recorded, {"Rate-Control": "no", "Frames": frames})
        assert [frame.number for frame in recorded.frames(client)] == numbers, frames


def test_nothing_changes_for_those_who_do_not_require_it(recorded):
    started = time.monotonic()
    client = recorded.play(headers={"Range": "npt=4-", "Rate-Control": "no", "Frames": "intra"})
    assert time.monotonic() - started > SECONDS / 4
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
