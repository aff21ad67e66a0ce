"""Recorded intervals as MP4 files: every frame at its own time, over gaps and beside a running server, as ffprobe reads them."""

import json
import pathlib
import subprocess
import time

import pytest
import recordings
from frames import RATE
from server import wait_until
from test_recording import listing

CAMERA = recordings.CAMERA


@pytest.fixture(scope="module")
def gap(build_folder, tmp_path_factory):
    """A server, its listing of two contiguous ranges with a gap between them, and the film."""
    from server import Server
    film = recordings.film(build_folder)
    folder = tmp_path_factory.mktemp("export")
    text = recordings.config(film, folder / "recordings", audio="aac") + '\n[http]\nlisten = "127.0.0.1:0"\n'
    with Server(build_folder / "ovrtspd", folder / "first", text) as server:
        recordings.record(server, 4)
    time.sleep(1.5)  # the gap
    with Server(build_folder / "ovrtspd", folder / "second", text) as server:
        recordings.record(server, 6)

        def ranges():
            return listing(build_folder, server)[1][(CAMERA, 0)]
        wait_until(lambda: len(ranges()) == 2, 10, "two ranges")
        yield server, [(begin, end) for begin, end, _ in ranges()], film, folder


def export(build_folder, server, begin, end, path, camera=CAMERA):
    return subprocess.run([build_folder / "ovrtspd", "--config", server.config_path, "--export", str(camera),
                           str(begin), str(end), path], capture_output=True, text=True, timeout=60)


def packets(path, kind="v"):
    """(time, key, cut) of each packet of a track, by ffprobe."""
    probed = subprocess.run(["ffprobe", "-v", "error", "-select_streams", kind, "-show_entries",
                             "packet=pts_time,flags", "-of", "json", path],
                            capture_output=True, text=True, timeout=60, check=True)
    assert probed.stderr == ""
    return [(float(packet["pts_time"]), packet["flags"][0] == "K", "D" in packet["flags"])
            for packet in json.loads(probed.stdout)["packets"]]


def recorded_frames(folder):
    """The date of every frame on the disk, by the names of the files and ffprobe."""
    dates = []
    for path in sorted(pathlib.Path(folder).rglob("*.mkv")):
        date, _, fraction = path.stem.rstrip("Z").partition(".")
        begin = time.mktime(time.strptime(date, "%Y%m%dT%H%M%S")) - time.timezone + float("0." + fraction)
        dates += [begin + at for at, _, _ in packets(path)]
    return sorted(dates)


def assert_times(exported, dates, begin, end):
    """Each frame of the interval is presented once, at its date to the millisecond."""
    presented = sorted(at for at, _, cut in exported if not cut)
    expected = [date - begin for date in dates if begin <= date < end]
    assert len(presented) == len(expected)
    wrong = [(at, due) for at, due in zip(presented, expected) if abs(at - due) > 0.0011]
    assert not wrong


def test_every_frame_is_at_its_time_over_a_gap(build_folder, gap, tmp_path):
    server, ((_, first_end), (second_begin, _)), _, folder = gap
    begin, end = round(first_end - 2.3, 3), round(second_begin + 2.7, 3)
    ended = export(build_folder, server, begin, end, tmp_path / "gap.mp4")
    assert ended.returncode == 0, ended.stderr
    exported = packets(tmp_path / "gap.mp4")
    assert_times(exported, recorded_frames(folder / "recordings"), begin, end)
    # The key frame before, unless the first frame of the interval is one.
    assert exported[0][1] and exported[0][0] < 1 / RATE
    times = [at for at, _, _ in exported]
    widest = max(after - before for before, after in zip(times, times[1:]))
    assert abs(widest - (second_begin - first_end) - 1 / RATE) < 0.01
    audio = [at for at, _, cut in packets(tmp_path / "gap.mp4", "a") if not cut]
    assert max(after - before for before, after in zip(audio, audio[1:])) > 1


def test_frames_are_those_of_the_film_and_decode(build_folder, gap, tmp_path):
    server, (_, (begin, _)), film, _ = gap
    assert export(build_folder, server, begin, begin + 3, tmp_path / "film.mp4").returncode == 0
    stream = subprocess.run(["ffmpeg", "-v", "error", "-i", tmp_path / "film.mp4", "-map", "0:v", "-c", "copy",
                             "-bsf:v", "h264_mp4toannexb", "-f", "h264", "-"], capture_output=True, check=True).stdout
    numbers = film.numbers_in(stream)
    assert numbers == [(numbers[0] + i) % len(film.numbers) for i in range(len(numbers))]
    decoded = subprocess.run(["ffmpeg", "-v", "warning", "-xerror", "-i", tmp_path / "film.mp4", "-f", "null", "-"],
                             capture_output=True, text=True, timeout=60, check=True)
    assert decoded.stderr == ""


def test_growing_recording_is_exported_beside_the_server(build_folder, gap, tmp_path):
    server, (_, (begin, _)), _, folder = gap
    end = time.time() + 60
    ended = export(build_folder, server, begin, end, tmp_path / "now.mp4")
    assert ended.returncode == 0, ended.stderr
    presented = [at for at, _, cut in packets(tmp_path / "now.mp4") if not cut]
    assert presented[-1] > time.time() - begin - 4


def test_tables_stand_in_front_of_the_media(build_folder, gap, tmp_path):
    server, ((begin, end), _), _, _ = gap
    assert export(build_folder, server, begin, end, tmp_path / "fast.mp4").returncode == 0
    content = (tmp_path / "fast.mp4").read_bytes()
    assert content.index(b"moov") < content.index(b"mdat")


def test_what_cannot_be_exported_is_said(build_folder, gap, tmp_path):
    server, ((begin, end), _), _, _ = gap
    out = tmp_path / "none.mp4"
    for arguments, code, said in [((begin - 100, begin - 90), 1, "nothing was recorded"),
                                  ((end, begin), 2, "interval is empty"),
                                  (("yesterday", end), 2, "START must be"),
                                  ((begin, "now"), 2, "END must be"),
                                  ((begin, begin + 90000), 2, "longer than 24 hours")]:
        ended = export(build_folder, server, *arguments, out)
        assert (ended.returncode, said in ended.stderr) == (code, True), ended.stderr
    ended = export(build_folder, server, begin, end, out, camera=99)
    assert ended.returncode == 1 and "nothing was recorded" in ended.stderr
    ended = export(build_folder, server, begin, end, out, camera="yard")
    assert ended.returncode == 2 and "CAMERA must be" in ended.stderr
    ended = export(build_folder, server, begin, end, tmp_path / "none" / "out.mp4")
    assert ended.returncode == 1 and "none/out.mp4" in ended.stderr
    assert list(tmp_path.iterdir()) == []


def http_url(server):
    """Base of the URLs of the HTTP service."""
    port = server.http_port()
    return f"http://127.0.0.1:{port}/api/v1/recordings"


def curl(*arguments):
    return subprocess.run(["curl", "-sS", *arguments], capture_output=True, text=True, timeout=60)


def test_broken_download_is_resumed_to_the_same_file(build_folder, gap, tmp_path):
    server, ((begin, _), (_, end)), _, _ = gap
    url = f"{http_url(server)}/{CAMERA}/export.mp4?start={begin}&end={end}"
    assert curl("-f", "-o", tmp_path / "whole.mp4", url).returncode == 0
    whole = (tmp_path / "whole.mp4").read_bytes()
    (tmp_path / "resumed.mp4").write_bytes(whole[:len(whole) // 3])
    resumed = curl("-f", "-C", "-", "-w", "%{http_code} %{size_download}", "-o", tmp_path / "resumed.mp4", url)
    assert resumed.returncode == 0, resumed.stderr
    assert resumed.stdout == f"206 {len(whole) - len(whole) // 3}"
    assert (tmp_path / "resumed.mp4").read_bytes() == whole
    assert export(build_folder, server, begin, end, tmp_path / "program.mp4").returncode == 0
    assert (tmp_path / "program.mp4").read_bytes() == whole


def test_file_from_the_http_service_plays_while_it_comes(build_folder, gap, tmp_path):
    server, ((begin, end), _), _, _ = gap
    url = f"{http_url(server)}/{CAMERA}/export.mp4?start={begin}&end={end}"
    assert packets(url)
    assert curl("-o", "/dev/null", "-w", "%{http_code}", url.replace(str(end), str(begin - 1))).stdout == "400"
    assert curl("-o", "/dev/null", "-w", "%{http_code}", url.replace(f"start={begin}&end={end}", "start=1&end=2")).stdout == "404"
