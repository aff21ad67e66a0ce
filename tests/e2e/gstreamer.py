"""rtspsrc as a client."""

import json
import subprocess


def record(url, transport, path, media, branch, prefix=()):
    """Has rtspsrc play both tracks of `url` and writes one of them to `path`. One sink alone ends the run: the ends
    of two race each other inside rtspsrc. `prefix` is a command that runs it elsewhere."""
    run = subprocess.run(
        [*prefix, "gst-launch-1.0", "rtspsrc", f"location={url}", f"protocols={transport}", "latency=200",
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
