import subprocess
import time

import pytest

from rtsp_client import RtspClient
from server import wait_until

# Long enough for a loaded machine not to hit it by chance, short enough to wait for.
CONFIG = """
port = 0
log-level = "debug"
linger = 1

[limits]
handshake-timeout = 2
idle-timeout = 3
session-timeout = 4
orphan-timeout = 2
"""


@pytest.fixture
def server(serve):
    return serve(CONFIG)


def status_of(server, session):
    """What the server answers to a request for a session."""
    with RtspClient(server.url()) as client:
        return client.request("GET_PARAMETER", headers={"Session": session}).status


def test_killed_player_leaves_nothing(server, transport):
    player = subprocess.Popen(
        ["ffmpeg", "-nostdin", "-v", "error", "-rtsp_transport", transport, "-i", server.url(), "-f", "null", "-"],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        wait_until(lambda: server.connections() == 1, 15, "the player is connected")
        time.sleep(2)
        assert player.poll() is None
    finally:
        player.kill()
        player.wait()
    wait_until(lambda: server.connections() == 0, 5, "the connection is gone")
    wait_until(lambda: server.sessions() == 0, 10, "the session is gone")


def test_udp_session_ends_soon_after_its_connection(server):
    client = RtspClient(server.url(), "udp")
    try:
        client.open()
        client.receive(lambda: len(client.rtp) > 50, "media")
        client.socket.close()
        rtp_socket = client.tracks[0].sockets[0]
        rtp_socket.settimeout(1.5)
        end = time.monotonic() + 10
        with pytest.raises(TimeoutError):
            while time.monotonic() < end:
                rtp_socket.recv(65536)
        assert status_of(server, client.session) == 454
    finally:
        client.close()


def test_silent_session_times_out(server):
    """The connection stays, but neither RTSP nor RTCP comes."""
    with RtspClient(server.url(), "udp") as client:
        client.open()
        started = time.monotonic()
        client.receive(lambda: len(client.rtp) > 50, "media")
        assert "timeout=4" in client.session_header
        wait_until(lambda: server.sessions() == 0, 15, "the session times out")
        assert time.monotonic() - started >= 3.5


def test_connection_without_a_request_is_closed(server):
    with RtspClient(server.url()) as client:
        started = time.monotonic()
        client.socket.settimeout(10)
        assert client.socket.recv(1) == b""
        assert 1.5 < time.monotonic() - started < 8


def test_setup_without_play_is_forgotten(server):
    client = RtspClient(server.url(), "tcp")
    client.describe()
    client.setup_all()
    session = client.session
    client.close()
    wait_until(lambda: server.sessions() == 0, 10, "the session is gone")
    assert status_of(server, session) == 454
