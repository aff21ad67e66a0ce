"""Recording by a running ovrtspd where the disk is full or taken away, and where somebody has locked the index."""

import ctypes
import os
import pathlib
import sqlite3
import subprocess
import time

import pytest
from server import wait_until
from test_recording import config, directory, files, listing, packets  # noqa: F401 (a fixture)


@pytest.fixture
def small_disk(tmp_path):
    """A disk of 6 MiB, seen by this process and those that it starts."""
    libc = ctypes.CDLL(None, use_errno=True)
    private = 1 << 18 | 1 << 14  # MS_PRIVATE, MS_REC
    folder = tmp_path / "disk"
    folder.mkdir()
    if libc.unshare(0x20000) != 0 or libc.mount(b"none", b"/", None, private, None) != 0:  # CLONE_NEWNS
        pytest.skip(f"mounting is not permitted: {os.strerror(ctypes.get_errno())}")
    assert libc.mount(b"none", bytes(folder), b"tmpfs", 0, b"size=6m") == 0
    yield folder
    libc.umount2(bytes(folder), 2)  # MNT_DETACH


def test_oldest_recordings_make_room_on_a_full_disk(serve, build_folder, small_disk):
    directory = small_disk / "recordings"
    stream = config(directory).replace("400", "16000").replace("320", "640").replace("180", "360")
    stream = stream.replace("segment =", 'min-free = "0"\nsegment =')
    server = serve(stream)  # fills it in some ten seconds
    server.allow_problem("is full: .* made room")
    wait_until(lambda: "made room" in server.log(), 60, "a full disk")
    first = files(directory)
    wait_until(lambda: not set(first) & set(files(directory)), 90, "all of the first files gone")
    server.stop()
    assert "recording stopped" not in server.log()
    _, streams = listing(build_folder, server)
    (begin, end, _), = streams[3, 1]
    assert time.time() - end < 5, "no gap, and up to now"
    seconds = sum(len(packets(path)[0]) for path in files(directory)) / 25
    assert end - begin == pytest.approx(seconds, abs=0.1), "files and entries went together"


def test_oldest_recordings_keep_room_on_the_disk(serve, build_folder, small_disk):
    directory = small_disk / "recordings"
    server = serve(config(directory).replace("segment =", 'min-free = "50%"\nsegment =').replace("400", "3000"))
    server.allow_problem("less than min-free")
    wait_until(lambda: files(directory), 30, "a segment")
    first = files(directory)
    wait_until(lambda: not set(first) & set(files(directory)), 60, "the first files gone")
    assert "less than min-free: the oldest recordings make room" in server.log()
    disk = os.statvfs(small_disk)
    assert disk.f_bavail > disk.f_blocks / 10, "what is recorded between two checks is less than the rest"
    server.stop()
    assert "is full" not in server.log() and "recording stopped" not in server.log()
    assert len(listing(build_folder, server)[1][3, 1]) == 1, "no gap"


def test_four_recordings_go_on_while_the_disk_is_full_all_the_time(build_folder):
    full = pathlib.Path(__file__).parents[2] / "bench" / "recording_full.py"
    run = subprocess.run([full, "--build", build_folder, "--seconds", "25", "--disk", "12"], capture_output=True, text=True,
                         timeout=150, check=False)
    assert run.returncode == 0, run.stdout + run.stderr


def test_camera_keeps_to_its_own_limit(serve, build_folder, directory):
    text = config(directory).replace("400", "4000")
    server = serve(text.replace("[[camera]]", '[[camera]]\nmax-size = "1MiB"', 1))
    wait_until(lambda: "old recordings removed" in server.log(), 40, "a removal")
    server.stop()
    assert len(listing(build_folder, server)[1][3, 1]) == 1


def test_locked_index_loses_nothing(serve, build_folder, directory):
    server = serve(config(directory))
    server.allow_problem("the index of the recordings cannot be written: ")
    wait_until(lambda: len(files(directory)) >= 2, 30, "two segments")
    other = sqlite3.connect(directory / "index.db", isolation_level=None)
    other.execute("BEGIN EXCLUSIVE")
    known = len(files(directory))
    wait_until(lambda: len(files(directory)) >= known + 5, 60, "ten seconds of recording")
    other.execute("ROLLBACK")
    other.close()
    wait_until(lambda: "the index of the recordings can be written again" in server.log(), 20, "the index")
    server.stop()
    assert "recording stopped" not in server.log()
    _, streams = listing(build_folder, server)
    (begin, end, _), = streams[3, 1]
    assert end - begin == pytest.approx(sum(len(packets(path)[0]) for path in files(directory)) / 25, abs=0.1)
