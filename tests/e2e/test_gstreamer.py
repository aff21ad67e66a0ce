import json
import subprocess

FRAMES = 75


def test_rtspsrc_plays_both_tracks(server, transport, tmp_path):
    pictures, sound = tmp_path / "pictures.mkv", tmp_path / "sound.mkv"
    # Over TCP the end of one branch ends the source, over UDP each has to end by itself.
    sound_end = ["identity", "eos-after=21", "!"] if transport == "udp" else []
    run = subprocess.run(
        ["gst-launch-1.0", "rtspsrc", f"location={server.url()}", f"protocols={transport}", "latency=200",
         # Timestamps from the RTP timestamps alone: what the client guesses of the server's clock would blur them.
         "buffer-mode=none", "name=source",
         "source.", "!", "application/x-rtp,media=video", "!", "rtph264depay", "!", "avdec_h264", "!",
         "identity", f"eos-after={FRAMES + 1}", "!", "jpegenc", "!", "matroskamux", "!", "filesink", f"location={pictures}",
         "source.", "!", "application/x-rtp,media=audio", "!", "rtppcmudepay", "!", "mulawdec", "!", *sound_end,
         "matroskamux", "!", "filesink", f"location={sound}"],
        capture_output=True, text=True, timeout=40)
    assert run.returncode == 0, run.stdout[-2000:] + run.stderr
    assert "ERROR" not in run.stdout + run.stderr

    stream, times = packets(pictures)
    assert (stream["width"], stream["height"]) == (1280, 720)
    assert len(times) == FRAMES
    assert all(0.03 < b - a < 0.05 for a, b in zip(times, times[1:])), times
    stream, times = packets(sound)
    assert (stream["sample_rate"], stream["channels"]) == ("8000", 1)
    assert len(times) >= 20
    assert all(a < b for a, b in zip(times, times[1:])), times


def packets(path):
    """What stands in a recorded file: its stream, and its packets' times in seconds."""
    run = subprocess.run(["ffprobe", "-v", "error", "-show_streams", "-show_packets", "-of", "json", path],
                         capture_output=True, text=True, check=True, timeout=20)
    content = json.loads(run.stdout)
    return content["streams"][0], [float(packet["pts_time"]) for packet in content["packets"]]
