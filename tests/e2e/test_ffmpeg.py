import ffmpeg
import pytest


def test_ffprobe_reports_h264_and_pcmu(server, transport):
    streams = ffmpeg.probe(server.url(), transport)
    assert streams["video"]["codec_name"] == "h264"
    assert (streams["video"]["width"], streams["video"]["height"]) == (1280, 720)
    assert streams["audio"]["codec_name"] == "pcm_mulaw"
    assert (streams["audio"]["sample_rate"], streams["audio"]["channels"]) == ("8000", 1)


def test_second_stream_is_smaller(server):
    streams = ffmpeg.probe(server.url(1, 1), "tcp")
    assert (streams["video"]["width"], streams["video"]["height"]) == (640, 360)


def test_ten_seconds_decode_without_an_error_line(server, transport):
    frames = ffmpeg.decode(server.url(), transport)
    video = [frame for frame in frames if frame.stream == 0]
    audio = [frame for frame in frames if frame.stream == 1]
    assert 245 <= len(video) <= 255
    assert len(audio) > 100
    for track in (video, audio):
        assert all(before.pts < after.pts for before, after in zip(track, track[1:])), "timestamps increase"
    assert len({frame.checksum for frame in video}) > 200, "the test pattern moves"


@pytest.mark.parametrize("path", ["orv/live/9/0", "orv/live/1/9", "orv/live/x/0", "other/live/1/0"])
def test_unknown_urls_are_not_found(server, path):
    run = ffmpeg.probe(server.url().replace("orv/live/1/0", path), "tcp", check=False)
    assert run.returncode != 0
    assert "404 Not Found" in run.stderr
    server.allow_problem(path.split("/")[0] + "/live|no such|not found")
