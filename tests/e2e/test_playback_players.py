"""Common players play a recording unchanged and to its end."""

import itertools
import subprocess

import ffmpeg
import gstreamer
import pytest
import recordings
from frames import RATE
from recordings import SECONDS


def test_ffmpeg_decodes_every_frame(recorded, transport):
    frames = ffmpeg.decode(recorded.url, transport, limits=(), keep_times=False)
    assert len(frames) == len(recorded.whole)
    assert len({frame.checksum for frame in frames}) == len(frames)
    assert all(a.pts < b.pts for a, b in itertools.pairwise(frames[1:])), "time never goes back"
    originals = ffmpeg.decode(recorded.film.path, limits=("-frames:v", str(recorded.whole[-1].number + 1)), maps=("0:v",))
    assert [frame.checksum for frame in frames] == \
        [originals[frame.number].checksum for frame in recorded.whole], "as the camera saw them"


def test_ffprobe_reports_the_duration(recorded):
    run = subprocess.run(["ffprobe", "-v", "error", "-rtsp_transport", "tcp", "-show_entries", "format=duration", "-of",
                          "csv=p=0", recorded.url], capture_output=True, text=True, timeout=30, check=True)
    assert float(run.stdout) == pytest.approx(recorded.seconds, abs=1 / RATE)
    assert run.stderr == ""


def test_rtspsrc_plays_to_the_end(recorded, transport, tmp_path):
    path = tmp_path / "frames.mkv"
    gstreamer.launch(recorded.url, transport, "!", "rtph264depay", "!", "h264parse", "!", "matroskamux", "!", "filesink",
                     f"location={path}", timeout=40)
    probe = subprocess.run(["ffprobe", "-v", "error", "-count_packets", "-show_entries", "stream=nb_read_packets", "-of",
                            "csv=p=0", path], capture_output=True, text=True, check=True)
    recorded.assert_whole_by_rtspsrc(int(probe.stdout))


HEVC_SECONDS = 3
HEVC_GOP = 10
HEVC_STREAM = f"""
video = "h265"
audio = "aac"
width = 320
height = 240
gop = {HEVC_GOP}
"""


# A camera whose encoder is kept from a processor records fewer frames.
@pytest.mark.usefixtures("real_time")
def test_hevc_and_aac_are_played_as_recorded(serve, tmp_path):
    server = serve(recordings.recording(tmp_path / "recordings", HEVC_STREAM, segment=1))
    url = recordings.url_of_new(server, HEVC_SECONDS)
    streams = ffmpeg.probe(url, "tcp")
    assert {kind: stream["codec_name"] for kind, stream in streams.items()} == {"video": "hevc", "audio": "aac"}
    units = ffmpeg.decode(url, "tcp", limits=(), maps=("0:v", "0:a"), keep_times=False)
    frames = [frame for frame in units if frame.stream == 0]
    assert HEVC_SECONDS * RATE - 1 <= len(frames) <= HEVC_SECONDS * RATE + HEVC_GOP, "from the key frame before"
    assert len({frame.checksum for frame in frames}) == len(frames)
    assert all(a.pts < b.pts for a, b in itertools.pairwise(frames[1:])), "time never goes back"
    played = (len(units) - len(frames)) * 1024 / int(streams["audio"]["sample_rate"])
    assert HEVC_SECONDS - 0.2 < played < HEVC_SECONDS + HEVC_GOP / RATE + 0.2, "audio as long as the frames"
