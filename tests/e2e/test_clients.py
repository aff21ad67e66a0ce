"""Each client over each transport: the table of docs/clients.md. With OV_WRITE_CLIENTS=1 it is written instead of
compared."""

import asyncio
import contextlib
import os
import pathlib
import subprocess
import types

import ffmpeg
import frames
import gstreamer
import pycurl
import pytest
from network import groups_at_loopback
from server import DEFAULT_CONFIG, Server
from test_curl import Curl
from test_tls import TLS
from test_tunnels import over_websocket, url_of

DOCUMENT = pathlib.Path(__file__).parents[2] / "docs" / "clients.md"
START, END = "<!-- made by tests/e2e/test_clients.py -->\n", "<!-- end -->\n"
FRAMES = 25
TRANSPORTS = ["udp", "tcp", "multicast", "http", "https", "ws", "wss", "rtsps", "srtp", "srtp over rtsps"]

# What a client has no means for. It is not tried: there is nothing to ask it for.
NO_WEBSOCKET = "speaks RTSP, not RTSP through WebSocket"
NO_MIKEY = "reads no key from MIKEY, and `a=crypto` is sent over TLS alone"
CANNOT = {
    "ffmpeg": {"ws": NO_WEBSOCKET, "wss": NO_WEBSOCKET, "srtp": NO_MIKEY},
    "ffprobe": {"ws": NO_WEBSOCKET, "wss": NO_WEBSOCKET, "srtp": NO_MIKEY},
    "mpv": {"ws": NO_WEBSOCKET, "wss": NO_WEBSOCKET, "srtp": NO_MIKEY},
    "rtspsrc": {"ws": NO_WEBSOCKET, "wss": NO_WEBSOCKET},
    "curl": {transport: "libcurl's RTSP is interleaved in TCP, without TLS" for transport in TRANSPORTS if transport != "tcp"},
    "websockets": {transport: "is a WebSocket client" for transport in TRANSPORTS if transport not in ("ws", "wss")},
    "vlc": {transport: "Debian's is built without an RTSP client" for transport in TRANSPORTS},
}


class Source:
    """A server, and its URLs for each transport."""

    def __init__(self, server):
        self.server = server

    def url(self, transport):
        if transport == "multicast":
            return self.server.url(family="orv/multicast")
        if transport in ("http", "https"):
            return url_of(self.server, transport)
        url = self.server.tls_url() if transport in ("rtsps", "srtp over rtsps") else self.server.url()
        return url + "?security=srtp" if transport.startswith("srtp") else url


def lavf_transport(transport):
    """ffmpeg's option. What is over TLS is interleaved for it."""
    return {"multicast": "udp_multicast", "rtsps": "tcp", "srtp over rtsps": "tcp"}.get(transport, transport)


def by_ffmpeg(source, transport, folder):
    return len(ffmpeg.decode(source.url(transport), lavf_transport(transport), ("-frames:v", str(FRAMES)), ("0:v",)))


def by_ffprobe(source, transport, folder):
    run = subprocess.run(
        ["ffprobe", "-v", "error", "-rtsp_transport", lavf_transport(transport), "-count_frames", "-select_streams", "v",
         "-read_intervals", f"%+#{FRAMES}", "-show_entries", "stream=nb_read_frames", "-of", "csv=p=0", source.url(transport)],
        capture_output=True, text=True, timeout=40)
    assert run.returncode == 0 and ffmpeg.complaints(run) == [], run.stderr
    return int(run.stdout)


def by_mpv(source, transport, folder):
    """It writes each frame that it would show."""
    run = subprocess.run(
        ["mpv", "--no-config", "--vo=image", "--vo-image-format=jpg", f"--vo-image-outdir={folder}", "--no-audio", "--untimed",
         f"--frames={FRAMES}", "--rtsp-transport=lavf", f"--demuxer-lavf-o=rtsp_transport={lavf_transport(transport)}",
         source.url(transport)], capture_output=True, text=True, timeout=40)
    assert run.returncode == 0, run.stdout + run.stderr
    return len(list(pathlib.Path(folder).glob("*.jpg")))


def by_rtspsrc(source, transport, folder):
    protocols = {"multicast": "udp-mcast", "http": "tcp+http", "https": "tcp+http", "rtsps": "tcp", "srtp": "udp",
                 "srtp over rtsps": "udp"}.get(transport, transport)
    url = source.url(transport)
    if transport in ("http", "https"):
        url = url.replace("rtsp://", {"http": "rtsph", "https": "rtspsh"}[transport] + "://")
    decoded = pathlib.Path(folder) / "decoded"
    gstreamer.launch(url, protocols, "tls-validation-flags=0", "!", "application/x-rtp,media=video", "!", "rtph264depay", "!",
                     "avdec_h264", "!", "identity", f"eos-after={FRAMES + 1}", "!", "videoscale", "!",
                     "video/x-raw,format=I420,width=16,height=16", "!", "filesink", f"location={decoded}")
    return decoded.stat().st_size // (16 * 16 * 3 // 2)


def decoded_from(packets, folder):
    """How many frames ffmpeg decodes from the RTP packets that a client was given."""
    stream = pathlib.Path(folder) / "stream.h264"
    units = frames.units([types.SimpleNamespace(payload=packet[12:]) for packet in packets])
    stream.write_bytes(b"".join(b"\0\0\0\1" + unit for unit in units))
    return len(ffmpeg.decode(stream, None, (), ("0:v",), keep_times=False))


def whole_frames(packets):
    """The first packets, up to the end of the last frame that is counted."""
    ends = [number for number, packet in enumerate(packets) if packet[1] & 0x80]
    return packets[:ends[FRAMES - 1] + 1] if len(ends) >= FRAMES else None


def by_websockets(source, transport, folder):
    packets = asyncio.run(over_websocket(source.server, transport, "orv/live/1/0",
                                         lambda packets: whole_frames(packets) is not None))
    return decoded_from(packets, folder)


def by_curl(source, transport, folder):
    url = source.url(transport)
    curl = Curl(url)
    assert curl.ask(pycurl.RTSPREQ_DESCRIBE, url)[0] == 200
    assert curl.ask(pycurl.RTSPREQ_SETUP, url + "/trackID=0", OPT_RTSP_TRANSPORT="RTP/AVP/TCP;unicast;interleaved=0-1")[0] == 200
    status, _, media = curl.ask(pycurl.RTSPREQ_PLAY, url, RANGE="npt=0-")
    assert status == 200
    while True:
        packets, at = [], 0
        while at + 4 <= len(media):
            end = at + 4 + int.from_bytes(media[at + 2:at + 4], "big")
            if media[at + 1] == 0 and end <= len(media):
                packets.append(media[at + 4:end])
            at = end
        if whole_frames(packets):
            break
        media += curl.ask(pycurl.RTSPREQ_RECEIVE, url)[2]
    assert curl.ask(pycurl.RTSPREQ_TEARDOWN, url)[0] == 200
    return decoded_from(whole_frames(packets), folder)


PLAYERS = {"ffmpeg": by_ffmpeg, "ffprobe": by_ffprobe, "mpv": by_mpv, "rtspsrc": by_rtspsrc, "curl": by_curl,
           "websockets": by_websockets, "vlc": None}
RESULTS = {}


@pytest.fixture(scope="module")
def source(build_folder, tmp_path_factory):
    with Server(build_folder / "ovrtspd", tmp_path_factory.mktemp("server"), DEFAULT_CONFIG + TLS) as server:
        server.allow_problem("can read its SRTP keys")
        yield Source(server)


@pytest.mark.parametrize("transport", TRANSPORTS)
@pytest.mark.parametrize("client", PLAYERS)
def test_plays(source, client, transport, tmp_path):
    reason = CANNOT.get(client, {}).get(transport)
    if reason is None:
        with groups_at_loopback() if transport == "multicast" else contextlib.nullcontext():
            RESULTS[client, transport] = PLAYERS[client](source, transport, tmp_path)
        assert RESULTS[client, transport] == FRAMES
        if client == "rtspsrc" and transport.startswith("srtp"):
            path = source.url(transport).partition("?")[0]
            assert f'url="{path}" transport=srtp\n' in source.server.log(), "it was encrypted"
    else:
        RESULTS[client, transport] = None


def test_vlc_has_no_rtsp_client():
    """What the table says of it, which another build of it might change."""
    found = [path for folder in pathlib.Path("/usr/lib").glob("*/vlc/plugins") for path in folder.rglob("liblive555_plugin.so")]
    assert found == []


def table():
    """The table, and what its footnotes say."""
    reasons, lines = [], ["| Client | " + " | ".join(TRANSPORTS) + " |", "|---|" + "--:|" * len(TRANSPORTS)]
    for client in PLAYERS:
        cells = []
        for transport in TRANSPORTS:
            reason = CANNOT.get(client, {}).get(transport)
            if reason is not None and reason not in reasons:
                reasons.append(reason)
            cells.append(str(RESULTS[client, transport]) if reason is None else f"({reasons.index(reason) + 1})")
        lines.append(f"| {client} | " + " | ".join(cells) + " |")
    lines += [""] + [f"{number}. {reason}" for number, reason in enumerate(reasons, 1)]
    return "\n".join(lines) + "\n"


def test_the_document_has_the_table():
    """Runs last."""
    if len(RESULTS) < len(PLAYERS) * len(TRANSPORTS):
        pytest.skip("some were not run, or failed")
    before, rest = DOCUMENT.read_text().split(START)
    written, after = rest.split(END)
    if "OV_WRITE_CLIENTS" in os.environ:
        DOCUMENT.write_text(before + START + table() + END + after)
    else:
        assert written == table()
