"""ffmpeg and ffprobe as clients."""

import dataclasses
import json
import subprocess


@dataclasses.dataclass
class Frame:
    stream: int
    pts: int
    checksum: str


def probe(url, transport, check=True):
    """Returns the streams that ffprobe reports, by kind"""
    run = subprocess.run(
        ["ffprobe", "-v", "error", "-rtsp_transport", transport, "-show_streams", "-of", "json", url],
        capture_output=True, text=True, timeout=30)
    if not check:
        return run
    assert run.returncode == 0 and complaints(run) == [], run.stderr
    return {stream["codec_type"]: stream for stream in json.loads(run.stdout)["streams"]}


def complaints(run):
    """What it wrote as errors, but for its search for two free ports, which others on the machine may disturb."""
    return [line for line in run.stderr.splitlines() if "bind failed: Address already in use" not in line]


def decode(source, transport=None, limits=("-t", "10"), maps=("0",), timeout=60, keep_times=True, prefix=()):
    """Decodes, and returns every decoded frame; anything that ffmpeg complains of fails the test.

    `prefix` is a command that runs it elsewhere."""
    arguments = [*prefix, "ffmpeg", "-nostdin", "-v", "error", "-xerror"]
    if keep_times:
        # The first packet of an RTSP stream has no time for ffmpeg; this keeps it from being taken for the second's.
        arguments.append("-copyts")
    if transport:
        arguments += ["-rtsp_transport", transport]
    arguments += ["-i", str(source)]
    for stream in maps:
        arguments += ["-map", stream]
    # Passed through and in the time base of RTP, a lost or doubled frame and its time stay visible.
    arguments += [*limits, "-fps_mode:v", "passthrough", "-enc_time_base", "-1", "-f", "framehash", "-hash", "md5", "-"]
    run = subprocess.run(arguments, capture_output=True, text=True, timeout=timeout)
    assert run.returncode == 0 and complaints(run) == [], run.stderr
    frames = []
    for line in run.stdout.splitlines():
        if not line.startswith("#"):
            stream, _, pts, _, _, checksum = [field.strip() for field in line.split(",")]
            frames.append(Frame(int(stream), int(pts), checksum))
    return frames
