import re
import subprocess


def test_mpv_plays_fifty_frames(server, transport):
    run = subprocess.run(
        ["mpv", "--no-config", "--vo=null", "--ao=null", "--frames=50", f"--rtsp-transport={transport}", server.url()],
        capture_output=True, text=True, timeout=40)
    assert run.returncode == 0, run.stdout + run.stderr
    assert re.search(r"Video .*\(h264 1280x720", run.stdout)
    assert re.search(r"Audio .*\(pcm_mulaw 1ch 8000Hz", run.stdout)
    assert re.search(r"VO: \[null\] 1280x720", run.stdout)
    assert not re.search(r"error|corrupt|concealing", run.stdout + run.stderr, re.I), run.stdout + run.stderr
