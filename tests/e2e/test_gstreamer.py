from gstreamer import record

FRAMES = 75
# More than the burst that a stream starts with.
BLOCKS = 150


def test_rtspsrc_plays_the_frame(server, transport, tmp_path):
    stream, times = record(server.url(), transport, tmp_path / "frames.mkv", "video",
                           ["rtph264depay", "!", "avdec_h264", "!", "identity", f"eos-after={FRAMES + 1}", "!", "jpegenc"])
    assert (stream["width"], stream["height"]) == (1280, 720)
    assert len(times) in (FRAMES, FRAMES + 1), "gst-launch may let one pass behind the end"
    assert all(0.03 < b - a < 0.05 for a, b in zip(times, times[1:])), times


def test_rtspsrc_plays_the_audio(server, transport, tmp_path):
    stream, times = record(server.url(), transport, tmp_path / "audio.mkv", "audio",
                           ["rtppcmudepay", "!", "mulawdec", "!", "identity", f"eos-after={BLOCKS + 1}"])
    assert (stream["sample_rate"], stream["channels"]) == ("8000", 1)
    assert len(times) == BLOCKS
    assert all(a < b for a, b in zip(times, times[1:])), times
