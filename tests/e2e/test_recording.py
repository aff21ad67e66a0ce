"""Recording by a running ovrtspd: what is on disk is listed, before and after a crash, and live streams do not depend on it."""

import json
import os
import pathlib
import re
import subprocess
import time

import ffmpeg
import pytest
from server import wait_until

SEGMENT_SECONDS = 2


def config(directory, record="true"):
    return f"""
port = 0
log-level = "debug"

[recording]
directory = "{directory}"
segment = {SEGMENT_SECONDS}

[[camera]]
id = 3

[[camera.stream]]
id = 1
width = 320
height = 180
bit-rate = 400
record = {record}
"""


def listing(build_folder, server):
    """What --recordings prints: for each stream its intervals as (from, to, url), in Unix seconds."""
    listed = subprocess.run([build_folder / "ovrtspd", "--config", server.config_path, "--recordings"],
                          capture_output=True, text=True, timeout=20)
    streams = {}
    for line in listed.stdout.splitlines():
        if found := re.match(r"camera (\d+)/(\d+): ([0-9.]+) seconds, (\d+) gaps?$", line):
            intervals = streams.setdefault((int(found[1]), int(found[2])), [])
        elif found := re.match(r"  from \S+Z \(([0-9.]+)\) to \S+Z \(([0-9.]+)\)( and growing)?(?:, unfinished)?, [0-9.]+ seconds$", line):
            intervals.append([float(found[1]), float(found[2])])
        elif found := re.match(r"      (rtsp://\S+)$", line):
            intervals[-1].append(found[1])
        else:
            assert re.match(r"  gap of [0-9.]+ seconds$", line), line
    return listed, streams


def files(directory):
    return sorted(pathlib.Path(directory).rglob("*.mkv"))


def packets(path):
    """The times of a file's frames in seconds, and how many blocks of audio it has."""
    probed = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "packet=codec_type,pts_time", "-of", "json", path],
                          capture_output=True, text=True, timeout=30, check=True)
    found = json.loads(probed.stdout)["packets"]
    video = [float(packet["pts_time"]) for packet in found if packet["codec_type"] == "video"]
    return video, sum(packet["codec_type"] == "audio" for packet in found)


@pytest.fixture
def directory(tmp_path):
    return tmp_path / "recordings"


def test_recordings_are_listed_while_they_grow_and_played_by_any_player(serve, build_folder, directory):
    server = serve(config(directory))
    wait_until(lambda: len(files(directory)) >= 4, 30, "four segments")
    listed, streams = listing(build_folder, server)
    assert listed.returncode == 0
    assert list(streams) == [(3, 1)]
    assert "and growing" in listed.stdout
    (begin, end, url), = streams[3, 1]
    assert 3 * SEGMENT_SECONDS - 1 < end - begin < 5 * SEGMENT_SECONDS
    assert abs(time.time() - end) < 4, "the end is now"
    place = re.search(r"/orv/playback/3_(\d+)_(\d+)$", url)
    assert begin <= int(place[1]) < int(place[2]) <= end, "the URL asks for what is there"

    server.stop()
    _, streams = listing(build_folder, server)
    (begin, end, url), = streams[3, 1]
    frames = 0
    for path in files(directory)[:3]:
        video, audio_blocks = packets(path)
        assert len(video) == SEGMENT_SECONDS * 25
        assert all(abs(b - a - 0.04) < 0.0021 for a, b in zip(video, video[1:]))
        assert abs(audio_blocks - SEGMENT_SECONDS * 50) <= 5
        assert ffmpeg.decode(path, limits=())[0].pts == 0
    for path in files(directory):
        frames += len(packets(path)[0])
    assert abs(frames - (end - begin) * 25) <= 1


def test_everything_on_disk_is_listed_after_a_crash(serve, build_folder, directory):
    server = serve(config(directory))
    wait_until(lambda: len(files(directory)) >= 3, 30, "three segments")
    time.sleep(0.8)
    killed = time.time()
    server.kill()
    listed, before = listing(build_folder, server)
    assert "and growing" not in listed.stdout, "nobody records"
    assert listed.stdout.count(", unfinished, ") == 1
    on_disk = sum(len(packets(path)[0]) for path in files(directory)) / 25

    again = serve(config(directory))
    wait_until(lambda: "one stream is recorded" in again.log(), 20, "the start of the recording")
    wait_until(lambda: "recordings repaired: 1 unfinished measured" in again.log(), 20, "the repair")
    wait_until(lambda: len(listing(build_folder, again)[1][3, 1]) == 2, 20, "a recording of the second run")
    listed, streams = listing(build_folder, again)
    (begin, end, _), (begin_again, _, _) = streams[3, 1]
    assert begin == before[3, 1][0][0]
    assert end - begin == pytest.approx(on_disk, abs=0.05), "every second that is on disk is listed"
    assert killed - end < 1.2, "at most about a second was in memory"
    assert begin_again > end
    gap = float(re.search(r"  gap of ([0-9.]+) seconds", listed.stdout)[1])
    assert gap == pytest.approx(begin_again - end, abs=0.002)
    for path in files(directory)[:-1]:
        assert ffmpeg.decode(path, limits=()), "the decoder takes it"


def test_second_server_leaves_the_folder_alone(serve, build_folder, directory):
    server = serve(config(directory))
    wait_until(lambda: len(files(directory)) >= 2, 30, "two segments")
    second = serve(config(directory))
    second.allow_problem("nothing is recorded: ")
    wait_until(lambda: "nothing is recorded: " in second.log(), 20, "the refusal")
    assert f"{directory}: another server (process {server.pid}) uses this folder" in second.log()
    known = len(files(directory))
    wait_until(lambda: len(files(directory)) >= known + 2, 30, "two more segments")
    assert "repaired" not in second.log()
    second.stop()
    server.stop()
    _, streams = listing(build_folder, server)
    assert len(streams[3, 1]) == 1, "no gap"


def test_lost_index_is_rebuilt_from_the_files(serve, build_folder, directory):
    server = serve(config(directory))
    wait_until(lambda: len(files(directory)) >= 3, 30, "three segments")
    server.stop()
    _, before = listing(build_folder, server)
    known = len(files(directory))
    for path in directory.glob("index.db*"):
        path.unlink()
    again = serve(config(directory, record="false"))
    wait_until(lambda: f" {known} unknown adopted" in again.log(), 20, "the index, though nothing is recorded now")
    again.stop()
    assert listing(build_folder, server)[1][3, 1][0][:2] == pytest.approx(before[3, 1][0][:2], abs=0.05)
    for path in directory.glob("index.db*"):
        path.unlink()

    third = serve(config(directory))
    wait_until(lambda: "one stream is recorded" in third.log(), 20, "the start of the recording")
    wait_until(lambda: f" {known} unknown adopted" in third.log(), 20, "the index")
    _, after = listing(build_folder, third)
    assert after[3, 1][0][0] == pytest.approx(before[3, 1][0][0], abs=0.001)
    assert after[3, 1][0][1] > before[3, 1][0][1] - 0.05


def test_live_continues_where_nothing_can_be_written(serve, build_folder, directory, transport):
    directory.write_text("a file in the place of the directory")
    server = serve(config(directory))
    server.allow_problem("nothing is recorded: ")
    received = ffmpeg.decode(server.url(3, 1), transport, limits=("-t", "4"), maps=("0:v",))
    assert 95 <= len(received) <= 105
    assert all(abs(b.pts - a.pts - 3600) < 90 for a, b in zip(received, received[1:]))
    assert server.log().count("nothing is recorded: ") == 1
    assert listing(build_folder, server)[0].returncode == 1


def test_live_goes_on_when_the_disk_is_full(serve, build_folder, directory):
    """A limit of the file size stands for the full disk: a write beyond it fails as one on a full disk does."""
    server = serve(config(directory))
    server.allow_problem("recording stopped: ")
    server.allow_problem("the index of the recordings cannot be written: ")
    wait_until(lambda: len(files(directory)) >= 2, 30, "two segments")
    subprocess.run(["prlimit", "--fsize=10000:", "--pid", str(server.pid)], check=True)
    received = ffmpeg.decode(server.url(3, 1), limits=("-t", "4"), maps=("0:v",))
    assert 95 <= len(received) <= 105
    assert server.log().count("recording stopped: ") == 1
    subprocess.run(["prlimit", "--fsize=unlimited:", "--pid", str(server.pid)], check=True)
    wait_until(lambda: "recording goes on" in server.log(), 40, "the recording")
    _, streams = listing(build_folder, server)
    assert len(streams[3, 1]) == 2
    assert server.log().count("recording stopped: ") == 1


def test_oldest_recordings_are_removed(serve, build_folder, directory):
    server = serve(config(directory).replace("segment =", "max-size = 1\nsegment =").replace("400", "4000"))
    wait_until(lambda: "old recordings removed" in server.log(), 40, "a removal")
    wait_until(lambda: "old recordings removed" in server.log(), 40, "a removal")
    server.stop()
    kept = files(directory)
    assert sum(os.path.getsize(path) for path in kept) < 3 * 1048576
    _, streams = listing(build_folder, server)
    (begin, end, _), = streams[3, 1]
    seconds = sum(len(packets(path)[0]) for path in kept) / 25
    assert end - begin == pytest.approx(seconds, abs=0.1), "files and entries went together"
