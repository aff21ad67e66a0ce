import re
import subprocess
from pathlib import Path

import ffmpeg
import pytest
from conftest import VTEST
from rtsp_client import RtspClient


@pytest.fixture
def camera(serve, clip):
    return serve(f"""
port = 0
log-level = "debug"

[[camera]]
id = 5
name = "car park"

[[camera.stream]]
id = 0
source = "file"
location = "{clip}"
audio = "none"
""")


def test_recording_is_served_as_it_is_and_in_a_loop(camera, clip, transport):
    """Passed through, each decoded frame is one of the file's, bit for bit, and the next follows it."""
    streams = ffmpeg.probe(camera.url(5), transport)
    assert list(streams) == ["video"]
    assert (streams["video"]["width"], streams["video"]["height"]) == (768, 576)

    originals = [frame.checksum for frame in ffmpeg.decode(clip, limits=())]
    assert len(originals) == len(set(originals)) == 80
    received = ffmpeg.decode(camera.url(5), transport, limits=("-t", "12"))
    places = [originals.index(frame.checksum) for frame in received]
    assert 115 <= len(places) <= 122
    assert all((b - a) % len(originals) == 1 for a, b in zip(places, places[1:])), places
    assert any(b < a for a, b in zip(places, places[1:])), "the end of the file was crossed"
    assert all(a.pts < b.pts for a, b in zip(received, received[1:])), "timestamps increase across the end"


def test_a_file_that_needs_no_decoding_is_read_by_one_thread(camera):
    with RtspClient(camera.url(5)) as client:
        client.describe()
        client.setup_all()
        client.play()
        names = [(task / "comm").read_text().strip() for task in Path(f"/proc/{camera.pid}/task").iterdir()]
    assert names.count("file") == 1
    assert "pipeline" not in names


@pytest.mark.skipif(not VTEST.exists(), reason="the recording is packed")
def test_frames_are_those_of_the_file(camera, tmp_path):
    """The frame that a viewer sees is compared with the original recording, before any encoding."""
    frame = tmp_path / "frame.png"
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-rtsp_transport", "tcp", "-i", camera.url(5), "-frames:v", "1",
                    frame], check=True, timeout=30)
    likeness = subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-loop", "1", "-i", frame, "-t", "8", "-i", VTEST, "-lavfi",
         "[0]format=yuv420p,settb=1/10,setpts=N[a];[1]format=yuv420p,settb=1/10,setpts=N[b];"
         "[a][b]psnr=shortest=1:stats_file=-", "-f", "null", "-"],
        capture_output=True, text=True, timeout=60, check=True)
    values = [float(value) for value in re.findall(r"psnr_avg:([0-9.]+)", likeness.stdout)]
    assert len(values) >= 80
    assert max(values) > 34, "one of the recording's frames is this one"
    assert max(values) - sorted(values)[len(values) // 2] > 3, "and the others differ from it"
