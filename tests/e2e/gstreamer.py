"""rtspsrc as a client."""

import json
import re
import subprocess

# rtspsrc stops itself: PAUSED and READY follow each other at its end, and READY cancels the connection on which PAUSED
# may still be about to send PAUSE. On the wire stand TEARDOWN and its answer, and then the client closes.
CANCELLED_PAUSE = re.compile(r"""ERROR: from element \S*GstRTSPSrc:rtspsrc\d+: Could not write to resource\.
Additional debug info:
\S+ gst_rtspsrc_(try_send|pause) \(\): \S+
Could not send message\. \(Received end-of-file\)
""")


def launch(url, transport, *line, prefix=(), timeout=20):
    """Has rtspsrc play `url` into the elements of `line`, to an end that they or the server make. `prefix` is a command
    that runs it elsewhere."""
    command = [*prefix, "gst-launch-1.0", "rtspsrc", f"location={url}", f"protocols={transport}", "latency=200", *line]
    # Media that come with PLAY's answer can be there before gst-launch has linked what shall take them: then it fails, or
    # rtspsrc's task stops for good while the media wait in its sockets.
    for attempt in range(3):
        try:
            run = subprocess.run(command, capture_output=True, text=True, timeout=timeout)
        except subprocess.TimeoutExpired:
            if attempt == 2:
                raise
            continue
        if "reason not-linked" not in run.stderr:
            break
    said = run.stdout[-2000:] + run.stderr
    assert "Got EOS from element" in run.stdout, said
    errors = CANCELLED_PAUSE.sub("", run.stderr)
    assert run.returncode == 0 or errors != run.stderr, said
    assert "ERROR" not in run.stdout + errors, said


def record(url, transport, path, media, branch, prefix=()):
    """Has rtspsrc play both tracks of `url` and writes one of them to `path`. One sink alone ends the run: the ends
    of two race each other inside rtspsrc."""
    # Timestamps from the RTP timestamps alone: what the client guesses of the server's clock would blur them.
    launch(url, transport, "buffer-mode=none", "!", f"application/x-rtp,media={media}", "!", *branch, "!", "matroskamux",
           "!", "filesink", f"location={path}", prefix=prefix)
    return packets(path)


def packets(path):
    """What stands in a recorded file: its stream, and its packets' times in seconds."""
    run = subprocess.run(["ffprobe", "-v", "error", "-show_streams", "-show_packets", "-of", "json", path],
                         capture_output=True, text=True, check=True, timeout=20)
    content = json.loads(run.stdout)
    return content["streams"][0], [float(packet["pts_time"]) for packet in content["packets"]]
