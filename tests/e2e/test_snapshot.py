"""Key frames as JPEG files from a running ovrtspd: live, scaled, of a recorded instant, and what many of them cost."""

import json
import subprocess
import time

import pytest
from server import wait_until

CONFIG = """
port = 0
log-level = "debug"

[http]
listen = "127.0.0.1:0"

[recording]
directory = "{folder}"
segment = 2

[[camera]]
id = 1

[[camera.stream]]
id = 0
width = 640
height = 360
record = true

[[camera.stream]]
id = 1
width = 320
height = 180
"""


@pytest.fixture
def snapshots(serve, tmp_path):
    """snapshots(stream, query): (status, file) of a request."""
    server = serve(CONFIG.format(folder=tmp_path / "recordings"))
    port = server.http_port()

    def get(stream, query=""):
        path = tmp_path / "snapshot.jpg"
        path.unlink(missing_ok=True)
        done = subprocess.run(["curl", "-sS", "-o", path, "-w", "%{http_code}",
                               f"http://127.0.0.1:{port}/api/v1/cameras/1/streams/{stream}/snapshot.jpg{query}"],
                              capture_output=True, text=True, timeout=30, check=True)
        return int(done.stdout), path

    get.server = server
    return get


def size(path):
    """Width and height of the frame in a file, decoded without an error."""
    probed = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "frame=width,height,pict_type", "-of", "json", path],
                            capture_output=True, text=True, timeout=30, check=True)
    assert probed.stderr == ""
    frame, = json.loads(probed.stdout)["frames"]
    return frame["width"], frame["height"]


def test_live_frame_comes_in_its_size_or_a_smaller_one(snapshots):
    for query, expected in [("", (640, 360)), ("?width=320", (320, 180)), ("?width=5000", (640, 360))]:
        status, path = snapshots(0, query)
        assert (status, size(path)) == (200, expected)


def test_stream_that_nobody_watches_is_started_and_stops_again(snapshots):
    status, path = snapshots(1)
    assert (status, size(path)) == (200, (320, 180))
    wait_until(lambda: "camera 1/1: stopping, nobody watches" in snapshots.server.log(), 40, "the stream stops")


def test_recorded_instant_comes_as_a_file(snapshots):
    now = time.time()
    wait_until(lambda: snapshots(0, f"?time={now + 1:.3f}")[0] == 200, 20, "a second is recorded")
    status, path = snapshots(0, f"?time={now + 1:.3f}&width=160")
    assert (status, size(path)) == (200, (160, 90))
    assert snapshots(0, f"?time={now - 1000:.3f}")[0] == 404
