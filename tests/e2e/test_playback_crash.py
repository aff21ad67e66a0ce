"""What was on the disk when the server was killed is played by the next one, frame for frame."""

import math
import subprocess
import time

import pytest
import recordings
from recordings import finish
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until


def numbers_on_disk(film, folder):
    """The film's frames in the recorded files, in the order of their recording."""
    numbers = []
    for path in sorted(folder.rglob("*.mkv")):
        stream = subprocess.run(
            ["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:v", "-c", "copy", "-bsf:v", "h264_mp4toannexb",
             "-f", "h264", "-"], capture_output=True, timeout=60).stdout
        numbers += film.numbers_in(stream)
    return numbers


@pytest.fixture
def film(build_folder):
    return recordings.film(build_folder)


def test_every_frame_on_disk_is_played_after_a_kill(serve, film, tmp_path):
    folder = tmp_path / "recordings"
    text = recordings.config(film, folder)
    first = serve(text)
    begin = recordings.record(first, 4).begin
    wait_until(lambda: time.time() % 2 > 1, 5, "somewhere in a second")
    first.kill()
    end = math.ceil(time.time())
    on_disk = numbers_on_disk(film, folder)
    wait_until(lambda: time.time() > end, 5, "what is recorded next lies behind the interval")

    second = serve(text)
    with RtspClient(recordings.url(second, begin, end)) as client:
        client.describe()
        client.setup_all()
        client.play({})
        finish(client)
    packets = client.packets(client.video())
    assert_no_gap(packets)
    played = [frame.number for frame in film.frames(packets)]
    assert len(played) > 3 * 25
    assert played == on_disk[on_disk.index(played[0]):], "from its first frame to the last one on the disk"
