"""Opus: encoded here, and sent as it is from files, launch lines and cameras; live, recorded and as talk-back."""

import re
import subprocess

import ffmpeg
import gstreamer
import numpy
import pytest
import recordings
from audio import RATE, strongest
from rtsp_client import RtspClient
from server import Server

SECONDS = 3
BLOCK = 0.02
TONE = 440  # Hz, of the synthetic camera
STEREO = (600, 900)  # Hz, left and right of the file

VIDEO = """
width = 320
height = 240
bit-rate = 200
"""


def stereo_file(folder):
    path = folder / "stereo.mkv"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"sine={STEREO[0]}:r=48000:d=12", "-f", "lavfi", "-i",
                    f"sine={STEREO[1]}:r=48000:d=12", "-filter_complex", "[0][1]join=inputs=2:channel_layout=stereo",
                    "-c:a", "libopus", "-b:a", "96k", path], check=True, timeout=60)
    return path


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    """Camera 5 encodes and records, camera 2 has a file, camera 3 a launch line, camera 4 a file it has to encode."""
    folder = tmp_path_factory.mktemp("opus")
    film = stereo_file(folder)
    config = recordings.recording(folder / "recordings", VIDEO + 'audio = "opus"\n') + f"""
[[camera]]
id = 2
[[camera.stream]]
id = 0
source = "file"
location = "{film}"
audio = "opus"

[[camera]]
id = 3
[[camera.stream]]
id = 0
source = "launch"
location = "audiotestsrc is-live=true freq={TONE} ! audio/x-raw,rate=48000,channels=1 ! opusenc name=audio"
video = "none"
audio = "opus"

[[camera]]
id = 4
[[camera.stream]]
id = 0
source = "file"
location = "{film}"
audio = "pcmu"
"""
    with Server(build_folder / "ovrtspd", folder / "server", config) as instance:
        yield instance


@pytest.fixture(scope="module")
def recorded(server):
    return recordings.url_of_new(server, SECONDS + 3)


def listen(url, transport, channels=1):
    """Samples of some seconds at RATE as ffmpeg decodes them, a column for each channel."""
    run = subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-xerror", "-rtsp_transport", transport, "-i", url, "-map", "0:a", "-t",
         str(SECONDS), "-f", "s16le", "-ar", str(RATE), "-ac", str(channels), "-"], capture_output=True, timeout=40)
    assert run.returncode == 0, run.stderr
    assert not ffmpeg.complaints(subprocess.CompletedProcess([], 0, "", run.stderr.decode())), run.stderr
    return numpy.frombuffer(run.stdout, "<i2").reshape(-1, channels).astype(float)


def assert_tone(samples, hertz):
    assert len(samples) >= 0.95 * SECONDS * RATE
    found, level = strongest(samples[RATE // 2:RATE // 2 + 2 * RATE])
    assert abs(found - hertz) < 1
    assert level > 1000


def record(url, transport, path):
    """What rtspsrc receives: stream and times."""
    blocks = round(SECONDS / BLOCK)
    stream, times = gstreamer.record(url, transport, path, "audio",
                                     ["rtpopusdepay", "!", "opusparse", "!", "identity", f"eos-after={blocks + 1}"])
    assert stream["codec_name"] == "opus"
    assert len(times) == blocks
    return stream, times


def section(url):
    with RtspClient(url) as client:
        return next(part for part in re.split(r"^m=", client.describe(), flags=re.M) if part.startswith("audio"))


def test_description_always_names_two_channels(server, recorded):
    for url in (server.url(5), recorded):
        text = section(url)
        payload_type = int(text.split(" ")[3].split("\r")[0])
        assert 96 <= payload_type <= 127
        assert f"a=rtpmap:{payload_type} opus/48000/2\r\n" in text
        assert re.search(rf"^a=fmtp:{payload_type} .*sprop-stereo=0", text, re.M), text


def test_description_has_stereo(server):
    assert re.search(r"^a=fmtp:\d+ .*sprop-stereo=1", section(server.url(2)), re.M)


def test_what_is_not_configured_for_opus_is_encoded(server):
    assert "PCMU/8000" in section(server.url(4))


def test_live_audio_is_decoded_by_ffmpeg(server, transport):
    stream = ffmpeg.probe(server.url(5), transport)["audio"]
    assert (stream["codec_name"], stream["sample_rate"]) == ("opus", "48000")
    assert_tone(listen(server.url(5), transport)[:, 0], TONE)


def test_live_audio_is_received_by_rtspsrc(server, transport, tmp_path):
    _, times = record(server.url(5), transport, tmp_path / "live.mkv")
    assert all(a < b for a, b in zip(times, times[1:])), times


def test_recorded_audio_is_decoded_by_ffmpeg(recorded, transport):
    assert ffmpeg.probe(recorded, transport)["audio"]["codec_name"] == "opus"
    assert_tone(listen(recorded, transport)[:, 0], TONE)


def test_recorded_audio_is_received_by_rtspsrc(recorded, transport, tmp_path):
    _, times = record(recorded, transport, tmp_path / "recorded.mkv")
    assert all(abs(b - a - BLOCK) < 0.005 for a, b in zip(times, times[1:])), times


def test_recording_is_played_from_the_disk(server, recorded):
    segment = sorted((server.folder.parent / "recordings").rglob("*.mkv"))[0]
    frames = ffmpeg.decode(segment, maps=("0:a",), limits=())
    assert len(frames) >= 0.9 / BLOCK


def test_file_is_sent_as_it_is(server, transport):
    samples = listen(server.url(2), transport, channels=2)
    for channel, hertz in enumerate(STEREO):
        assert_tone(samples[:, channel], hertz)


def test_launch_line_is_sent_as_it_is(server):
    assert_tone(listen(server.url(3), "tcp")[:, 0], TONE)


def test_camera_is_relayed_as_it_is(server, serve, transport):
    relay = serve(f"""
port = 0
[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "rtsp"
location = "{server.url(5)}"
audio = "opus"
""")
    assert "opus/48000/2" in section(relay.url())
    assert_tone(listen(relay.url(), transport)[:, 0], TONE)
