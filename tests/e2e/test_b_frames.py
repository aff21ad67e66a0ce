"""Sources whose frames come in another order than they are presented in (B-frames): recordings keep every frame and its time."""

import functools
import itertools
import json
import math
import subprocess
import time

import pytest
from made_once import made_once
from recordings import finish, recording, status, url
from rtsp_client import RtspClient
from server import wait_until
from test_recording import files, listing

RATE = 25
SEGMENT_SECONDS = 2
CODERS = {
    # Four B-frames in two levels; each GOP is closed, or every second key frame is followed by frames that lead it.
    "h264": ["-c:v", "libx264", "-bf", "4", "-x264-params", "b-pyramid=normal:b-adapt=0:scenecut=0:keyint=50"],
    "h264-open": ["-c:v", "libx264", "-bf", "3",
                  "-x264-params", "open-gop=1:b-pyramid=strict:b-adapt=0:scenecut=0:keyint=50:min-keyint=25"],
    "h265": ["-c:v", "libx265",
             "-x265-params", "log-level=error:bframes=4:b-pyramid=1:b-adapt=0:scenecut=0:keyint=50:open-gop=0"],
    "h265-open": ["-c:v", "libx265",
                  "-x265-params", "log-level=error:bframes=3:b-pyramid=1:b-adapt=0:scenecut=0:keyint=50:open-gop=1"],
}


@pytest.fixture(scope="session")
def films(build_folder):
    """A Matroska file for each coder: it holds no decode times."""
    def encode(options, path):
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=size=320x180:rate={RATE}",
                        "-frames:v", str(60 * RATE), "-preset", "veryfast", "-pix_fmt", "yuv420p", *options, path],
                       check=True)

    return {name: made_once(build_folder / f"e2e-b-frames-{name}.mkv", functools.partial(encode, options))
            for name, options in CODERS.items()}


def packets(source, *options):
    """(decode time, presentation time) of each frame, in the order of the file, seconds."""
    probed = subprocess.run(["ffprobe", "-v", "error", *options, "-select_streams", "v", "-show_entries",
                           "packet=pts_time,dts_time", "-of", "json", source],
                          capture_output=True, text=True, timeout=60, check=True)
    found = json.loads(probed.stdout)["packets"]
    return [(float(packet.get("dts_time", "nan")), float(packet.get("pts_time", "nan"))) for packet in found]


def assert_in_order(found, leads=False):
    """Decode times grow and lie not behind the presentation. Where frames lead the first key frame, ffprobe does not
    know the first ones' and guesses."""
    known = [packet for packet in found[6 if leads else 0:] if not math.isnan(packet[0])]
    assert len(known) >= len(found) - 10
    assert all(dts <= pts + 1e-6 for dts, pts in known), found
    assert all(before < after for (before, _), (after, _) in itertools.pairwise(known)), found


def assert_every_frame_once(times):
    """Presentation times of one contiguous range: a frame in each 25th of a second."""
    steps = [after - before for before, after in itertools.pairwise(sorted(times))]
    wrong = {index: round(step, 4) for index, step in enumerate(steps) if abs(step - 1 / RATE) > 0.0021}
    assert not wrong, (wrong, times)


def record(serve, tmp_path, stream, segments=3):
    """Records until so many segments are finished."""
    server = serve(recording(tmp_path / "recordings", stream, SEGMENT_SECONDS))
    wait_until(lambda: len(files(tmp_path / "recordings")) > segments, 60, "segments")
    return server


def begin_of(path):
    """Seconds of the day at which a segment starts, by its name."""
    name = path.stem.removesuffix("Z")
    start = time.strptime(name[:15], "%Y%m%dT%H%M%S")
    return (start.tm_hour * 60 + start.tm_min) * 60 + start.tm_sec + float("0" + name[15:])


def judge(server, build_folder, directory, leads=False, segments=3):
    """The finished segments follow each other with every frame, and playback has them all."""
    times = []
    for path in files(directory)[:segments]:
        found = packets(path)
        assert_in_order(found, leads)
        times += [begin_of(path) + pts for _, pts in found]
    assert_every_frame_once(times)
    _, streams = listing(build_folder, server)
    (begin, end, _), = next(iter(streams.values()))
    first = math.ceil(begin) + 1
    last = first + 3  # over the end of a segment
    wait_until(lambda: status(server, first, last) == 200, 20, "playback")
    with RtspClient(url(server, first, last)) as client:
        client.describe()
        client.setup_all()
        client.play({"Range": "npt=0-", "Speed": "8"})
        finish(client)
    played = list(dict.fromkeys(packet.timestamp for packet in client.rtp))
    unwrapped = [((timestamp - played[0] + 2**31) % 2**32 - 2**31) / 90000 for timestamp in played]
    # A frame beyond the end is sent where those before the end need it, without the ones between.
    assert_every_frame_once(sorted(unwrapped)[:-5])
    assert len(played) >= (last - first) * RATE - 4
    assert_in_order(packets(url(server, first, last), "-rtsp_transport", "tcp"), leads)


@pytest.mark.parametrize("coder", CODERS)
def test_a_file_without_decode_times_is_recorded_frame_by_frame(serve, build_folder, tmp_path, films, coder):
    server = record(serve, tmp_path, f'source = "file"\nlocation = "{films[coder]}"\naudio = "none"\n'
                    f'video = "{coder[:4]}"')
    judge(server, build_folder, tmp_path / "recordings", leads="open" in coder)


@pytest.mark.parametrize("line", [
    "x264enc name=video bframes=4 b-adapt=false b-pyramid=true key-int-max=50 speed-preset=superfast",
    "x265enc name=video speed-preset=ultrafast key-int-max=50 option-string=bframes=4:b-adapt=0:open-gop=0:rc-lookahead=8",
], ids=["h264", "h265"])
def test_a_launch_line_is_recorded_frame_by_frame(serve, build_folder, tmp_path, line):
    source = f"videotestsrc is-live=true ! video/x-raw,width=320,height=180,framerate={RATE}/1,format=I420 ! {line}"
    server = record(serve, tmp_path, f'source = "launch"\nlocation = "{source}"\naudio = "none"\n'
                    f'video = "{"h264" if "x264" in line else "h265"}"')
    judge(server, build_folder, tmp_path / "recordings")
