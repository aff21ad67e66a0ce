"""Motion JPEG: encoded here and relayed as it is; live and recorded."""

import re
import subprocess

import ffmpeg
import gstreamer
import numpy
import pytest
import recordings
from rtsp_client import RtspClient
from server import Server

SECONDS = 3
RATE = 25
SIZE = (320, 240)
LEFT, RIGHT = (220, 40, 40), (40, 60, 200)  # what the two halves of the film are filled with

ENCODED = f"""
video = "mjpeg"
width = {SIZE[0]}
height = {SIZE[1]}
audio = "none"
"""


def two_colours(folder):
    """A film with Huffman tables of its own, which RTP cannot carry."""
    path = folder / "two-colours.avi"
    halves = [f"color=#{bytes(colour).hex()}:s=160x240:r={RATE}:d=20" for colour in (LEFT, RIGHT)]
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", halves[0], "-f", "lavfi", "-i", halves[1],
                    "-filter_complex", "[0][1]hstack", "-c:v", "mjpeg", "-q:v", "3", "-huffman", "optimal",
                    "-pix_fmt", "yuvj420p", path], check=True, timeout=60)
    return path


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    """Camera 5 encodes a film and records it, camera 1 encodes the test pattern, camera 2 sends the film as H.264."""
    folder = tmp_path_factory.mktemp("mjpeg")
    film = two_colours(folder)
    config = recordings.recording(folder / "recordings", f'source = "file"\nlocation = "{film}"\n' + ENCODED) + f"""
[[camera]]
id = 1
[[camera.stream]]
id = 0
{ENCODED}
[[camera]]
id = 2
[[camera.stream]]
id = 0
source = "file"
location = "{film}"
"""
    with Server(build_folder / "ovrtspd", folder / "server", config) as instance:
        yield instance


@pytest.fixture(scope="module")
def recorded(server):
    return recordings.url_of_new(server, SECONDS + 3)


def assert_colours(source, transport=None):
    """The first frame is the film's."""
    run = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *(["-rtsp_transport", transport] if transport else []),
                          "-i", source, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"],
                         capture_output=True, timeout=30)
    assert run.returncode == 0, run.stderr
    frame = numpy.frombuffer(run.stdout, "u1").reshape(SIZE[1], SIZE[0], 3).astype(int)
    for part, colour in ((frame[:, 8:152], LEFT), (frame[:, 168:312], RIGHT)):
        assert abs(part - colour).max() < 24


def assert_frames(url, transport):
    frames = ffmpeg.decode(url, transport, limits=("-frames:v", str(SECONDS * RATE)), maps=("0:v",))
    assert len(frames) == SECONDS * RATE
    assert all(a.pts < b.pts for a, b in zip(frames, frames[1:]))
    return frames


def record(url, transport, path):
    """What rtspsrc receives and decodes."""
    count = SECONDS * RATE
    stream, times = gstreamer.record(url, transport, path, "video",
                                     ["rtpjpegdepay", "!", "jpegdec", "!", "identity", f"eos-after={count + 1}", "!",
                                      "jpegenc"])
    assert (stream["width"], stream["height"]) == SIZE
    assert len(times) == count
    assert all(0.02 < b - a < 0.06 for a, b in zip(times, times[1:])), times


def described(url):
    with RtspClient(url) as client:
        return client.describe()


def test_description_has_the_static_payload_type(server, recorded):
    for url in (server.url(1), server.url(5), recorded):
        text = described(url)
        assert re.search(r"^m=video 0 RTP/AVP 26\r$", text, re.M), text
        assert "a=rtpmap:26 JPEG/90000\r\n" in text
        assert "a=fmtp:26" not in text


def test_what_is_not_configured_for_jpeg_is_encoded(server):
    assert "H264/90000" in described(server.url(2))


def test_live_frames_are_decoded_by_ffmpeg(server, transport):
    stream = ffmpeg.probe(server.url(1), transport)["video"]
    assert (stream["codec_name"], stream["width"], stream["height"]) == ("mjpeg", *SIZE)
    frames = assert_frames(server.url(1), transport)
    assert len({frame.checksum for frame in frames}) == len(frames), "the pattern moves"
    assert_colours(server.url(5), transport)


def test_live_frames_are_decoded_by_gstreamer(server, transport, tmp_path):
    record(server.url(5), transport, tmp_path / "live.mkv")
    assert_colours(tmp_path / "live.mkv")


def test_recorded_frames_are_decoded_by_ffmpeg(recorded, transport):
    assert ffmpeg.probe(recorded, transport)["video"]["codec_name"] == "mjpeg"
    assert_frames(recorded, transport)
    assert_colours(recorded, transport)


def test_recorded_frames_are_decoded_by_gstreamer(recorded, transport, tmp_path):
    record(recorded, transport, tmp_path / "recorded.mkv")
    assert_colours(tmp_path / "recorded.mkv")


def test_recording_is_played_from_the_disk(server, recorded):
    segment = sorted((server.folder.parent / "recordings").rglob("*.mkv"))[0]
    assert len(ffmpeg.decode(segment, limits=())) >= 0.9 * RATE
    assert_colours(segment)


@pytest.mark.parametrize("begin", [0.52, 1.36])
def test_a_recording_starts_with_the_requested_frame(recorded, begin):
    with RtspClient(recorded) as client:
        client.describe()
        client.setup_all()
        client.play({"Range": f"npt={begin}-"})
        answered = recordings.npt(client.answer)[0]
        recordings.finish(client)
    assert begin - 1.5 / RATE < answered <= begin, "every frame is a key frame"


def test_camera_is_relayed_as_it_is(server, serve, transport):
    relay = serve(f"""
port = 0
log-level = "debug"
[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "rtsp"
location = "{server.url(5)}"
video = "mjpeg"
audio = "none"
""")
    assert "JPEG/90000" in described(relay.url())
    assert_frames(relay.url(), transport)
    assert_colours(relay.url(), transport)


@pytest.mark.parametrize("size, problem", [("width = 2048", "2040"), ("height = 2160", "2040"), ("width = 1366", "8")])
def test_sizes_that_rtp_cannot_carry_are_refused(build_folder, tmp_path, size, problem):
    path = tmp_path / "config.toml"
    path.write_text(f'[[camera]]\nid = 1\n[[camera.stream]]\nid = 0\nvideo = "mjpeg"\n{size}\n')
    run = subprocess.run([build_folder / "ovrtspd", "--config", path, "--check-config"], capture_output=True, text=True,
                         timeout=20)
    assert run.returncode != 0
    assert size.split(" ")[0] in run.stdout + run.stderr and problem in run.stdout + run.stderr
