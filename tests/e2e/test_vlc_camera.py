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


@pytest.mark.parametrize("codec", ENCODERS)
def test_every_frame_is_relayed_and_recorded(serve, build_folder, tmp_path, codec):
    folder = tmp_path / "recordings"
    with vlc_camera(film(build_folder, codec)) as url:
        server = serve(f"""
port = 0
log-level = "debug"

[recording]
directory = "{folder}"
segment = 2

[[camera]]
id = 1

[[camera.stream]]
id = 0
source = "rtsp"
location = "{url}"
video = "{codec}"
audio = "aac"
record = true
""")
        wait_until(lambda: list(folder.rglob("*.mkv")), 30, "a recording")
        frames = ffmpeg.decode(server.url(), "tcp", limits=("-t", "6"), maps=("0:v",))
        files = sorted(folder.rglob("*.mkv"))
        wait_until(lambda: len(list(folder.rglob("*.mkv"))) > len(files), 30, "the last segment's end")
        server.stop()
    steps = {b.pts - a.pts for a, b in zip(frames, frames[1:])}
    assert len(frames) >= 5 * RATE
    # VLC sets its clock by microseconds of its own now and then.
    assert all(abs(step - 90000 // RATE) < 450 for step in steps), steps
    assert len(files) >= 3
    for path in files:
        times, blocks = packets(path)
        ends = [(b - a) for a, b in zip(times, times[1:])]
        assert len(times) == round((times[-1] - times[0]) * RATE) + 1, "each frame is there"
        assert all(0.035 <= step <= 0.045 for step in ends), ends
        assert blocks >= (times[-1] - times[0]) * 48000 / 1024 - 3
        ffmpeg.decode(path, limits=())
