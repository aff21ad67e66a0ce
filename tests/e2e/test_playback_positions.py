"""Players of three families display an interval that starts inside a GOP from its first frame to its last one, and agree on
where each frame is. Frames are identified by their content: each decoded one is looked up in the film."""

import concurrent.futures
import hashlib
import itertools
import subprocess

import gi
import pytest
from frames import RATE

gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402

FRAME = 1 / RATE
PIXELS = 320 * 240 * 3 // 2


def checksums(raw):
    assert len(raw) % PIXELS == 0
    return [hashlib.md5(raw[at:at + PIXELS]).hexdigest() for at in range(0, len(raw), PIXELS)]


def decoded(arguments, **kwargs):
    run = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *arguments, "-map", "0:v", "-f", "rawvideo", "-pix_fmt",
                          "yuv420p", "-fps_mode", "passthrough", "-"], capture_output=True, timeout=60, check=True, **kwargs)
    return checksums(run.stdout)


@pytest.fixture(scope="module")
def numbers(recorded):
    """The film's frame numbers by their pixels."""
    last = recorded.whole[-1].number + 10
    found = {checksum: number for number, checksum in
             enumerate(decoded(["-i", str(recorded.film.path), "-frames:v", str(last)]))}
    assert len(found) == last
    return found


def times(path):
    run = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time", "-of",
                          "csv=p=0", path], capture_output=True, text=True, check=True, timeout=30)
    return [float(line) for line in run.stdout.split()]


def ffmpeg(recorded, transport, tmp_path, start):
    """The frames that ffmpeg decodes from a play time on: their checksums and play times."""
    path = tmp_path / "ffmpeg.mkv"
    seek = ["-ss", f"{start:.3f}", "-noaccurate_seek"] if start else []
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-copyts", "-rtsp_transport", transport, *seek, "-i", recorded.url,
                    "-c:v", "ffv1", "-fps_mode", "passthrough", "-enc_time_base", "-1", path],
                   check=True, timeout=60)
    # The first packet of an RTSP stream has no time for ffmpeg.
    return decoded(["-i", str(path)]), [None, *times(path)[1:]]


def mpv(recorded, transport, tmp_path, start):
    """The same of mpv; without play times, because its encoder starts them again."""
    path = tmp_path / "mpv.mkv"
    seek = [f"--start={start:.3f}", "--hr-seek=no"] if start else []
    run = subprocess.run(["mpv", "--no-config", "--no-audio", f"--rtsp-transport={transport}", *seek, f"--o={path}",
                          "--of=matroska", "--ovc=ffv1", recorded.url], capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stdout + run.stderr
    return decoded(["-i", str(path)]), None


def gstreamer(source, start):
    """The frames of a GStreamer source, and their stream times; from a seek on that comes while it plays."""
    pipeline = Gst.parse_launch(f"{source} ! appsink name=sink sync=false max-buffers=0")
    sink = pipeline.get_by_name("sink")
    try:
        pipeline.set_state(Gst.State.PLAYING)
        if start:
            assert sink.emit("try-pull-sample", 10 * Gst.SECOND) is not None
            assert pipeline.seek_simple(Gst.Format.TIME, Gst.SeekFlags.FLUSH | Gst.SeekFlags.KEY_UNIT,
                                        int(start * Gst.SECOND))
        displayed, at = [], []
        while (sample := sink.emit("try-pull-sample", 10 * Gst.SECOND)) is not None:
            buffer = sample.get_buffer()
            displayed.append(hashlib.md5(buffer.extract_dup(0, buffer.get_size())).hexdigest())
            at.append(sample.get_segment().to_stream_time(Gst.Format.TIME, buffer.pts) / Gst.SECOND)
        assert sink.get_property("eos"), "it plays to the end"
        return displayed, at
    finally:
        pipeline.set_state(Gst.State.NULL)


def rtspsrc(recorded, transport, tmp_path, start):
    """The same of GStreamer; with timestamps from the RTP timestamps alone, because what the client guesses of the
    server's clock would blur them."""
    return gstreamer(f"rtspsrc location={recorded.url} protocols={transport} latency=200 buffer-mode=none ! rtph264depay ! "
                     "h264parse ! avdec_h264", start)


PLAYERS = [ffmpeg, mpv, rtspsrc]
# A seek over UDP is not judged here: rtspsrc may take the first packet behind it before the answer to PLAY, and counts
# from the frame before then. What the server sends is judged packet by packet in test_playback.py.
PLAYS = [(0, "tcp"), (0, "udp"), (0.2, "tcp"), (5.5, "tcp")]
SIDE_BY_SIDE = 6


@pytest.fixture(scope="module")
def plays(recorded, tmp_path_factory):
    """What the players display, as futures: they play in real time, so several do at once."""
    # PyGObject makes GStreamer's types on first use, and must not do that for several threads at once.
    Gst.init(None)
    # In real time, so that some frames are left behind the seek.
    assert gstreamer("videotestsrc is-live=true num-buffers=40 ! video/x-raw,framerate=25/1", FRAME)[0]
    with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
        yield {(player, *play): pool.submit(player, recorded, play[1], tmp_path_factory.mktemp("play"), play[0])
               for player, play in itertools.product(PLAYERS, PLAYS)}


@pytest.mark.parametrize("player", PLAYERS, ids=lambda player: player.__name__)
@pytest.mark.parametrize("start, transport", PLAYS)
def test_the_first_and_the_last_frame_and_their_times(recorded, numbers, plays, transport, player, start):
    assert recorded.timeline.first % RATE == 0 and recorded.lead > 0, "the interval starts inside a GOP"
    displayed, at = plays[player, start, transport].result()
    frames = [numbers[checksum] for checksum in displayed]
    first = recorded.timeline.key_before(start)
    assert frames[0] == first, "the key frame at or before the start"
    assert frames[-1] == recorded.whole[-1].number, "nothing is cut off"
    assert frames == list(range(frames[0], frames[-1] + 1))
    if at is not None:
        for number, seconds in zip(frames, at):
            assert seconds in (None, pytest.approx((number - recorded.timeline.first) * FRAME, abs=0.002)), number
