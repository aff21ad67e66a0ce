"""ONVIF replay by GStreamer's own client: forwards, by key frames, and backwards."""

import hashlib
import re
import subprocess
import time

import gi
import pytest
from frames import GOP, RATE
from processor import Stopwatch
from recordings import NTP_EPOCH, SECONDS, finish
from rtsp_client import RtspClient
from test_playback import clock, seconds_of
from test_playback_positions import numbers  # noqa: F401
from test_playback_replay import REPLAY, stamp

gi.require_version("Gst", "1.0")
gi.require_version("GstRtsp", "1.0")
from gi.repository import Gst, GstRtsp  # noqa: E402


class Replay:
    """rtspsrc in its ONVIF mode, which asks for clock ranges; its application adds what makes a request one of replay."""

    def __init__(self, recorded, require=True, rate_control=True):
        Gst.init(None)
        self.pipeline = Gst.parse_launch(
            f"rtspsrc name=source location={recorded.url} protocols=tcp latency=200 buffer-mode=none onvif-mode=true "
            f"onvif-rate-control={'true' if rate_control else 'false'} ! rtponvifparse ! rtph264depay ! h264parse ! avdec_h264 ! "
            "appsink name=sink sync=false max-buffers=0")
        if require:
            self.pipeline.get_by_name("source").connect("before-send", self._require)
        self.sink = self.pipeline.get_by_name("sink")
        self.ranges = []

    def __enter__(self):
        self.pipeline.set_state(Gst.State.PLAYING)
        return self

    def __exit__(self, *_):
        self.pipeline.set_state(Gst.State.NULL)

    @staticmethod
    def _require(_, message):
        message.add_header(GstRtsp.RTSPHeaderField.REQUIRE, "onvif-replay")
        return True

    def frames(self):
        """Until the end: each frame's checksum and its stream time in seconds."""
        found = []
        while (sample := self.sink.emit("try-pull-sample", 10 * Gst.SECOND)) is not None:
            buffer = sample.get_buffer()
            found.append((hashlib.md5(buffer.extract_dup(0, buffer.get_size())).hexdigest(),
                          sample.get_segment().to_stream_time(Gst.Format.TIME, buffer.pts) / Gst.SECOND))
        bus = self.pipeline.get_bus()
        error = bus.pop_filtered(Gst.MessageType.ERROR)
        assert error is None, error.parse_error()
        assert self.sink.get_property("eos")
        return found


def test_the_description_has_absolute_times_for_replay_clients(recorded):
    with RtspClient(recorded.url) as client:
        text = client.request("DESCRIBE", headers={"Accept": "application/sdp", **REPLAY}).body.decode()
    begin, end = re.search(r"^a=range:clock=(\w+[.]\w+)-(\w+[.]\w+)\r$", text, re.M).groups()
    assert text.count("a=range:") == 1
    assert seconds_of(begin) == pytest.approx(recorded.start, abs=1e-5)
    assert seconds_of(end) == recorded.interval.begin + SECONDS


@pytest.mark.parametrize("requested", ["clock=19700101T000000Z-", "clock=-20991231T000000Z",
                                    "clock=20000101T000000Z-20991231T000000Z"])
def test_open_and_too_wide_ranges_are_cut_to_the_recording(recorded, requested):
    client = recorded.play(headers={"Range": requested, "Speed": "8"})
    begin, end = re.fullmatch(r"clock=(\w+[.]\w+)-(\w+[.]\w+)", client.answer.headers["range"]).groups()
    assert seconds_of(begin) == pytest.approx(recorded.start, abs=1e-5)
    assert seconds_of(end) == recorded.interval.begin + SECONDS
    assert [frame.number for frame in recorded.frames(client)] == [frame.number for frame in recorded.whole]


@pytest.mark.parametrize("require", [True, False], ids=["replay", "mode alone"])
def test_gstreamer_plays_from_the_first_frame_to_the_last(recorded, numbers, require):  # noqa: F811
    with Replay(recorded, require) as replay:
        frames = replay.frames()
    assert [numbers[checksum] for checksum, _ in frames] == [frame.number for frame in recorded.whole]
    for count, (_, at) in enumerate(frames):
        assert at == pytest.approx(count / RATE, abs=0.002)


def test_gstreamer_plays_backwards(recorded, numbers):  # noqa: F811
    with Replay(recorded) as replay:
        assert replay.sink.emit("try-pull-sample", 10 * Gst.SECOND) is not None
        base = int((recorded.start + NTP_EPOCH) * Gst.SECOND)
        flags = Gst.SeekFlags.FLUSH | Gst.SeekFlags.TRICKMODE_KEY_UNITS
        assert replay.pipeline.seek(-1.0, Gst.Format.TIME, flags, Gst.SeekType.SET, base, Gst.SeekType.SET,
                                    base + int(5.5 * Gst.SECOND))
        frames = replay.frames()
    # GStreamer's sinks take the frame that stands at the end of a segment for one behind it.
    first = recorded.timeline.key_before(5.5) - GOP
    sent = list(range(first, recorded.whole[0].number - 1, -GOP))
    assert [numbers[checksum] for checksum, _ in frames] == sent
    times = [at for _, at in frames]
    assert all(before - after == pytest.approx(1, abs=0.002) for before, after in zip(times, times[1:]))


@pytest.mark.parametrize("control", ["yes", "no"])
def test_key_frames_come_backwards(recorded, control):
    headers = {**REPLAY, "Scale": "-1.0", "Rate-Control": control, "Frames": "intra",
               "Range": f"clock={clock(recorded.start + 4.5)}-{clock(recorded.start + 1)}"}
    started, stopwatch = time.monotonic(), Stopwatch(recorded.server.pid)
    with RtspClient(recorded.url) as client:
        client.describe()
        client.setup_all()
        client.play(headers)
        finish(client)
    seconds = stopwatch.read() if control == "no" else time.monotonic() - started
    assert client.answer.headers["scale"] == "-1.0"
    first = recorded.timeline.key_before(4.5)
    start, end = re.fullmatch(r"clock=(\w+[.]\w+)-(\w+[.]\w+)", client.answer.headers["range"]).groups()
    assert seconds_of(start) == pytest.approx(recorded.start + (first - recorded.timeline.first) / RATE, abs=0.001)
    assert seconds_of(end) == pytest.approx(recorded.start + 1, abs=0.002)
    frames = recorded.frames(client)
    numbers = [frame.number for frame in frames]
    assert numbers in ([first, first - GOP, first - 2 * GOP], [first - GOP * i for i in range(4)])
    stamps = [stamp(frame) for frame in frames]
    for frame, stamped in zip(frames, stamps):
        assert stamped.time == pytest.approx(recorded.start + (frame.number - recorded.timeline.first) / RATE, abs=0.002)
        assert stamped.clean and stamped.discontinuity
    assert stamps[-1].end and not any(stamped.end for stamped in stamps[:-1])
    direction = 1 if control == "yes" else -1
    for before, after in zip(frames, frames[1:]):
        assert (after.timestamp - before.timestamp) * direction % 2**32 == 90000
    assert (seconds < 1) == (control == "no")


def test_other_clients_play_backwards_too(recorded):
    client = recorded.play(headers={"Scale": "-8"})
    assert client.answer.headers["scale"] == "-8.0"
    assert [frame.number for frame in recorded.frames(client)] == \
        [frame.number for frame in reversed(recorded.whole) if frame.key]
