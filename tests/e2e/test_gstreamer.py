import json
import subprocess

FRAMES = 75
BLOCKS = 20


def test_rtspsrc_plays_the_picture(server, transport, tmp_path):
    stream, times = record(server.url(), transport, tmp_path / "pictures.mkv", "video",
                           ["rtph264depay", "!", "avdec_h264", "!", "identity", f"eos-after={FRAMES + 1}", "!", "jpegenc"])
    assert (stream["width"], stream["height"]) == (1280, 720)
    assert len(times) == FRAMES
    assert all(0.03 < b - a < 0.05 for a, b in zip(times, times[1:])), times


def test_rtspsrc_plays_the_sound(server, transport, tmp_path):
    stream, times = record(server.url(), transport, tmp_path / "sound.mkv", "audio",
                           ["rtppcmudepay", "!", "mulawdec", "!", "identity", f"eos-after={BLOCKS + 1}"])
    assert (stream["sample_rate"], stream["channels"]) == ("8000", 1)
    assert len(times) == BLOCKS
    assert all(a < b for a, b in zip(times, times[1:])), times


def record(url, transport, path, media, branch):
    """Has rtspsrc play both tracks of `url` and writes one of them to `path`. One sink alone ends the run: the ends
    of two race each other inside rtspsrc."""
    run = subprocess.run(
        ["gst-launch-1.0", "rtspsrc", f"location={url}", f"protocols={transport}", "latency=200",
         # Timestamps from the RTP timestamps alone: what the client guesses of the server's clock would blur them.
         "buffer-mode=none", "!", f"application/x-rtp,media={media}", "!", *branch, "!", "matroskamux", "!",
         "filesink", f"location={path}"],
        capture_output=True, text=True, timeout=40)
    assert run.returncode == 0, run.stdout[-2000:] + run.stderr
    assert "ERROR" not in run.stdout + run.stderr
    return packets(path)


def packets(path):
    """What stands in a recorded file: its stream, and its packets' times in seconds."""
    run = subprocess.run(["ffprobe", "-v", "error", "-show_streams", "-show_packets", "-of", "json", path],
                         capture_output=True, text=True, check=True, timeout=20)
    content = json.loads(run.stdout)
    return content["streams"][0], [float(packet["pts_time"]) for packet in content["packets"]]
