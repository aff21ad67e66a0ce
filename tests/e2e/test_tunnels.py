"""RTSP through HTTP, HTTPS and WebSocket: players that people have, a WebSocket client, and curl."""

import asyncio
import re
import socket
import ssl
import subprocess
import urllib.parse

import ffmpeg
import gstreamer
import pytest
import recordings
import websockets
from server import DEFAULT_CONFIG, Server, wait_until
from test_tls import TLS, USERS

FRAMES = 50
SCHEMES = ["http", "https"]


@pytest.fixture(scope="module")
def tunnels(build_folder, tmp_path_factory):
    with Server(build_folder / "ovrtspd", tmp_path_factory.mktemp("server"), DEFAULT_CONFIG + TLS) as instance:
        yield instance


@pytest.fixture(scope="module")
def film_server(build_folder, tmp_path_factory):
    """A server over TLS as well, whose recording's frames are all known."""
    film = recordings.film(build_folder)
    folder = tmp_path_factory.mktemp("recorded")
    with Server(build_folder / "ovrtspd", folder, recordings.config(film, folder / "recordings") + TLS) as instance:
        yield recordings.Recorded(instance, film)


def url_of(server, scheme, path="orv/live/1/0", rtsp="rtsp"):
    """The URL for a client that opens an HTTP or HTTPS tunnel to the port in it."""
    parts = urllib.parse.urlsplit(server.tls_url(path) if scheme == "https" else f"{server.url()}")
    return f"{rtsp}://{parts.hostname}:{parts.port}/{path}"


@pytest.mark.parametrize("scheme", SCHEMES)
def test_ffmpeg_plays_live(tunnels, scheme):
    frames = ffmpeg.decode(url_of(tunnels, scheme), scheme, limits=("-frames:v", str(FRAMES)), maps=("0:v",))
    assert len(frames) == FRAMES


@pytest.mark.parametrize("scheme", SCHEMES)
def test_ffmpeg_plays_a_whole_recording(film_server, scheme):
    path = urllib.parse.urlsplit(film_server.url).path.lstrip("/")
    frames = ffmpeg.decode(url_of(film_server.server, scheme, path), scheme, limits=(), keep_times=False)
    assert len(frames) == len(film_server.whole)


@pytest.mark.parametrize("scheme", SCHEMES)
def test_ffprobe_logs_in(serve, scheme):
    server = serve(DEFAULT_CONFIG + TLS + USERS)
    server.allow_problem("it holds passwords and everybody can read it")
    url = url_of(server, scheme).replace("rtsp://", "rtsp://viewer:horse@")
    assert set(ffmpeg.probe(url, scheme)) == {"video", "audio"}
    wrong = ffmpeg.probe(url.replace("horse", "cow"), scheme, check=False)
    assert wrong.returncode != 0


@pytest.mark.parametrize("scheme", SCHEMES)
def test_rtspsrc_plays_live(tunnels, scheme):
    rtsp = {"http": "rtsph", "https": "rtspsh"}[scheme]
    gstreamer.launch(url_of(tunnels, scheme, rtsp=rtsp), "tcp+http", "tls-validation-flags=0", "!",
                     "application/x-rtp,media=video", "!", "rtph264depay", "!", "avdec_h264", "!", "identity",
                     f"eos-after={FRAMES}", "!", "fakesink")


@pytest.mark.parametrize("scheme", SCHEMES)
def test_rtspsrc_plays_a_whole_recording(film_server, scheme, tmp_path):
    path = urllib.parse.urlsplit(film_server.url).path.lstrip("/")
    rtsp = {"http": "rtsph", "https": "rtspsh"}[scheme]
    film = tmp_path / "frames.mkv"
    gstreamer.launch(url_of(film_server.server, scheme, path, rtsp), "tcp+http", "tls-validation-flags=0", "!",
                     "rtph264depay", "!", "h264parse", "!", "matroskamux", "!", "filesink", f"location={film}", timeout=40)
    film_server.assert_whole_by_rtspsrc(len(gstreamer.packets(film)[1]))


def test_connections_of_ended_tunnels_are_closed(serve):
    server = serve()
    ffmpeg.decode(url_of(server, "http"), "http", limits=("-frames:v", "5"), maps=("0:v",))
    wait_until(lambda: server.connections() == 0, 5, "both connections are closed")


class WebSocketRtsp:
    """RTSP over one WebSocket: one message is one response or one interleaved frame."""

    def __init__(self, connection):
        self.connection = connection
        self.cseq = 0
        self.frames = []

    async def ask(self, method, url, **headers):
        self.cseq += 1
        lines = [f"{method} {url} RTSP/1.0", f"CSeq: {self.cseq}"]
        lines += [f"{name.replace('_', '-')}: {value}" for name, value in headers.items()]
        await self.connection.send(("\r\n".join(lines) + "\r\n\r\n").encode())
        while True:
            message = await self.message()
            if message[:1] != b"$":
                break
            self.frames.append(message)
        head, _, body = message.decode().partition("\r\n\r\n")
        assert head.startswith("RTSP/1.0 200 "), head
        assert f"CSeq: {self.cseq}" in head
        return head, body

    async def message(self):
        message = await asyncio.wait_for(self.connection.recv(), 20)
        assert isinstance(message, bytes), "binary frames alone"
        return message

    async def play(self, url, done):
        """Plays all video until `done(packets)`, and returns its RTP packets."""
        _, description = await self.ask("DESCRIBE", url)
        assert "H264/90000" in description
        head, _ = await self.ask("SETUP", url + "/trackID=0", Transport="RTP/AVP/TCP;unicast;interleaved=0-1")
        session = re.search(r"Session: (\w+)", head).group(1)
        await self.ask("PLAY", url, Session=session)
        packets = []
        while not done(packets):
            message = self.frames.pop(0) if self.frames else await self.message()
            assert message[:1] == b"$" and int.from_bytes(message[2:4], "big") == len(message) - 4
            if message[1] == 0:
                packets.append(message[4:])
            elif message[5] == 203 or b"\x81\xcb" in message:
                break
        await self.ask("TEARDOWN", url, Session=session)
        numbers = [int.from_bytes(packet[2:4], "big") for packet in packets]
        assert all((b - a) & 0xFFFF == 1 for a, b in zip(numbers, numbers[1:]))
        return packets


def frames_in(packets):
    """Packets with the marker end a frame."""
    return sum(packet[1] >> 7 for packet in packets)


async def over_websocket(server, scheme, path, done):
    context = None
    if scheme == "wss":
        context = ssl.create_default_context()
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
    url = url_of(server, "https" if scheme == "wss" else "http", path)
    async with websockets.connect(url.replace("rtsp://", f"{scheme}://"), subprotocols=["rtsp.onvif.org"], ssl=context,
                                  compression=None, max_size=None) as connection:
        assert connection.subprotocol == "rtsp.onvif.org"
        await asyncio.wait_for(await connection.ping(), 10)
        return await WebSocketRtsp(connection).play(url, done)


@pytest.mark.parametrize("scheme", ["ws", "wss"])
def test_a_websocket_client_plays_live(tunnels, scheme):
    packets = asyncio.run(over_websocket(tunnels, scheme, "orv/live/1/0", lambda packets: frames_in(packets) >= FRAMES))
    assert frames_in(packets) == FRAMES


@pytest.mark.parametrize("scheme", ["ws", "wss"])
def test_a_websocket_client_plays_a_whole_recording(film_server, scheme):
    path = urllib.parse.urlsplit(film_server.url).path.lstrip("/")
    count = len(film_server.whole)
    packets = asyncio.run(over_websocket(film_server.server, scheme, path, lambda packets: frames_in(packets) >= count))
    assert frames_in(packets) == count


@pytest.mark.parametrize("scheme", SCHEMES)
def test_curl_gets_an_http_answer(tunnels, scheme):
    url = url_of(tunnels, scheme, "", rtsp=scheme)
    run = subprocess.run(["curl", "-sk", "-m", "10", "-w", "%{http_code}", url], capture_output=True, text=True, timeout=20)
    assert run.returncode == 0, run.stderr
    assert run.stdout.endswith("404") and "RTSP" in run.stdout


def test_curl_without_tls_on_the_tls_port_gets_an_http_answer(tunnels):
    url = url_of(tunnels, "https", "", rtsp="http")
    run = subprocess.run(["curl", "-s", "-m", "10", "-w", "%{http_code}", url], capture_output=True, text=True, timeout=20)
    assert run.returncode == 0, run.stderr
    assert run.stdout.endswith("400") and "TLS" in run.stdout
    wait_until(lambda: "speaks HTTP without TLS" in tunnels.log(), 5, "the log says so")


def test_a_client_without_tls_on_the_tls_port_is_named(serve):
    server = serve(DEFAULT_CONFIG + TLS)
    run = ffmpeg.probe(url_of(server, "https"), "tcp", check=False)
    assert run.returncode != 0 and "400" in run.stderr
    assert "speaks RTSP without TLS" in server.log()


def test_idle_halves_are_ended(serve):
    server = serve(DEFAULT_CONFIG + "\n[limits]\nhandshake-timeout = 1\n")
    parts = urllib.parse.urlsplit(server.url())
    with socket.create_connection((parts.hostname, parts.port), timeout=10) as get, \
            socket.create_connection((parts.hostname, parts.port), timeout=10) as post:
        get.sendall(b"GET / HTTP/1.0\r\nx-sessioncookie: one\r\n\r\n")
        post.sendall(b"POST / HTTP/1.0\r\nx-sessioncookie: two\r\nContent-Length: 32767\r\n\r\n")
        assert get.recv(4096).startswith(b"HTTP/1.0 200 OK\r\n")
        assert get.recv(4096) == b""
        assert post.recv(4096) == b""
    wait_until(lambda: server.connections() == 0, 5, "both connections are closed")
