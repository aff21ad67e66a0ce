import re
import subprocess

FRAMES = 75


def test_rtspsrc_plays_both_tracks(server, transport):
    # Over TCP the end of one sink ends the source, over UDP each has to end by itself.
    sound_end = ["num-buffers=20"] if transport == "udp" else []
    run = subprocess.run(
        ["gst-launch-1.0", "-v", "rtspsrc", f"location={server.url()}", f"protocols={transport}", "latency=200",
         # Timestamps from the RTP timestamps alone: what the client guesses of the server's clock would blur them.
         "buffer-mode=none", "name=source",
         "source.", "!", "application/x-rtp,media=video", "!", "rtph264depay", "!", "avdec_h264", "!",
         "fakesink", "name=pictures", "silent=false", "sync=false", f"num-buffers={FRAMES}",
         "source.", "!", "application/x-rtp,media=audio", "!", "rtppcmudepay", "!", "mulawdec", "!",
         "fakesink", "name=sound", "silent=false", "sync=false",
         *sound_end],
        capture_output=True, text=True, timeout=40)
    assert run.returncode == 0, run.stdout[-2000:] + run.stderr
    assert "ERROR" not in run.stdout + run.stderr
    assert re.search(r"GstFakeSink:pictures.*caps = video/x-raw.*width=\(int\)1280, height=\(int\)720", run.stdout)
    pictures = timestamps(run.stdout, "pictures")
    assert len(pictures) == FRAMES
    sound = timestamps(run.stdout, "sound")
    assert len(sound) >= 20
    for times in (pictures, sound):
        assert all(a < b for a, b in zip(times, times[1:])), f"timestamps increase: {times}"


def timestamps(output, sink):
    """The buffers that a sink took. gst-launch now and then prints the same buffer twice."""
    lines = re.findall(rf"GstFakeSink:{sink}: last-message = (chain .*)", output)
    return [re.search(r" pts: (\d+:\d\d:\d\d\.\d+)", line).group(1) for line in dict.fromkeys(lines)]
