"""Another program's RTSP server as the camera: VLC's. Its frames are relayed and recorded, all of them."""

import contextlib
import ctypes.util
import pathlib
import socket
import subprocess
import sys

import ffmpeg
import pytest
from made_once import made_once
from recordings import CAMERA, recording
from server import wait_until
from test_recording import packets

SECONDS = 60
RATE = 25
ENCODERS = {"h264": ["libx264", "-preset", "ultrafast"], "h265": ["libx265", "-preset", "ultrafast", "-x265-params",
                                                                    "log-level=error"]}

pytestmark = pytest.mark.skipif(ctypes.util.find_library("vlc") is None and not list(
    pathlib.Path("/usr/lib").glob("*/libvlc.so.5")), reason="VLC's library is not installed (vlc-plugin-base)")


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def listens(port):
    with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", port), timeout=1):
        return True
    return False


@contextlib.contextmanager
def vlc_camera(path):
    port = free_port()
    process = subprocess.Popen([sys.executable, pathlib.Path(__file__).with_name("vlc_server.py"), path, str(port)],
                               stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_until(lambda: listens(port), 30, "VLC listens")
        yield f"rtsp://127.0.0.1:{port}/camera"
    finally:
        process.kill()
        process.wait()


def film(folder, codec):
    return made_once(folder / f"vlc-{codec}.mp4", lambda path: subprocess.run(
        ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc=size=160x90:rate={RATE}", "-f", "lavfi", "-i",
         "sine=frequency=440:sample_rate=48000", "-t", str(SECONDS), "-pix_fmt", "yuv420p", "-c:v", *ENCODERS[codec],
         "-bf", "0", "-g", str(RATE), "-c:a", "aac", "-b:a", "64k", path], check=True))


def judge(frames, sent):
    """Each frame is the one that follows in the film."""
    numbers = {checksum: number for number, checksum in enumerate(sent) if sent.count(checksum) == 1}
    found = [numbers.get(frame.checksum) for frame in frames]
    assert all(a is None or b is None or b == a + 1 for a, b in zip(found, found[1:])), found
    assert len([number for number in found if number is not None]) > len(found) / 2, found


@pytest.mark.parametrize("codec", ENCODERS)
def test_every_frame_is_relayed_and_recorded(serve, build_folder, tmp_path, codec):
    folder = tmp_path / "recordings"
    path_of_film = film(build_folder, codec)
    with vlc_camera(path_of_film) as url:
        server = serve(recording(folder, f'source = "rtsp"\nlocation = "{url}"\nvideo = "{codec}"\naudio = "aac"'))
        wait_until(lambda: list(folder.rglob("*.mkv")), 30, "a recording")
        frames = ffmpeg.decode(server.url(CAMERA), "tcp", limits=("-t", "6"), maps=("0:v",))
        files = sorted(folder.rglob("*.mkv"))
        wait_until(lambda: len(list(folder.rglob("*.mkv"))) > len(files), 30, "the last segment's end")
        server.stop()
    # By their content: VLC moves its clock where it had to wait for a processor.
    sent = [frame.checksum for frame in ffmpeg.decode(path_of_film, limits=(), maps=("0:v",))]
    assert len(frames) >= 4 * RATE
    judge(frames, sent)
    assert len(files) >= 3
    for path in files:
        times, blocks = packets(path)
        assert all(b > a for a, b in zip(times, times[1:]))
        assert blocks > 0
        recorded = ffmpeg.decode(path, limits=(), maps=("0:v",))
        assert len(recorded) == len(times)
        judge(recorded, sent)
