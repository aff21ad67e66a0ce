"""Players that pause for longer than a session's time-out, and clients that vanish meanwhile."""

import json
import socket
import subprocess
import time

import pytest
import recordings
from network import CLIENT_INTERFACE, SERVER_ADDRESS, OtherMachine, ip
from rtsp_client import RtspClient
from server import wait_until

TIMEOUT = 4  # seconds that a session lives without a sign of life
PAUSE = 4 * TIMEOUT
LIMITS = f"""
[limits]
session-timeout = {TIMEOUT}
idle-timeout = {TIMEOUT}
"""
# More than all buffers of the connection hold in the pause.
STREAM = """
width = 1280
height = 720
bit-rate = 8000
audio = "none"
"""
SECONDS = 12


class Mpv:
    """A player that is steered through its socket."""

    def __init__(self, url, folder):
        self.path = str(folder / "mpv.socket")
        self.log = open(folder / "mpv.log", "w")
        self.process = subprocess.Popen(
            ["mpv", "--no-config", "--vo=null", "--ao=null", "--rtsp-transport=tcp", "--cache=no", "--keep-open=no",
             f"--input-ipc-server={self.path}", url], stdout=self.log, stderr=subprocess.STDOUT)
        wait_until(lambda: self.position() is not None, 20, "mpv plays")

    def ask(self, *command):
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
                connection.settimeout(5)
                connection.connect(self.path)
                connection.sendall(json.dumps({"command": command, "request_id": 7}).encode() + b"\n")
                for line in connection.makefile():
                    answer = json.loads(line)
                    if answer.get("request_id") == 7:
                        return answer.get("data")
        except OSError:
            pass
        return None

    def position(self):
        return self.ask("get_property", "time-pos")

    def pause(self, paused):
        self.ask("set_property", "pause", paused)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.log.close()


def test_mpv_continues_after_a_long_pause(serve, tmp_path):
    server = serve(recordings.recording(tmp_path / "recordings", STREAM).replace("[recording]", LIMITS + "[recording]", 1))
    player = Mpv(recordings.url_of_new(server, SECONDS), tmp_path)
    try:
        wait_until(lambda: (player.position() or 0) > 1, 20, "a second is played")
        player.pause(True)
        paused_at = player.position()
        end = time.monotonic() + PAUSE
        while time.monotonic() < end:
            assert player.process.poll() is None
            assert server.sessions() == 1, "the paused player's session is gone"
            time.sleep(0.5)
        assert player.position() == pytest.approx(paused_at, abs=0.5)
        player.pause(False)
        played = []
        wait_until(lambda: played.append(player.position()) or player.process.poll() is not None, 60, "mpv is at the end")
        assert max(at for at in played if at is not None) > SECONDS - 1
        assert player.process.returncode == 0
    finally:
        player.close()


@pytest.fixture
def other_machine():
    machine = OtherMachine()
    yield machine
    machine.close()


@pytest.mark.parametrize("reading", [True, False], ids=["that_reads", "that_stalled"])
def test_a_client_behind_a_cut_cable_vanishes(serve, other_machine, reading):
    server = serve(f"""
port = 0
listen = "{SERVER_ADDRESS}"
log-level = "debug"
linger = 1
{LIMITS}
[[camera]]
id = 1
[[camera.stream]]
id = 0
{STREAM}
""")
    server.allow_problem("anybody who reaches")
    with other_machine.inside():
        client = RtspClient(server.url(), "tcp")
    with client:
        client.open()
        client.receive(lambda: len(client.rtp) > 50, "media")
        if not reading:
            end = time.monotonic() + PAUSE
            while time.monotonic() < end:
                assert server.sessions() == 1, "it stalled, but answers"
                time.sleep(0.5)
        ip("link", "set", CLIENT_INTERFACE, "down", prefix=other_machine.prefix)
        cut = time.monotonic()
        while reading and time.monotonic() < cut + 1:
            time.sleep(0.1)
        # Where the probe interval cannot be set, the system doubles it after each probe.
        wait_until(lambda: server.sessions() == 0, 3 * TIMEOUT + (0 if reading else 2 * PAUSE), "the session is gone")
        wait_until(lambda: server.connections() == 0, 3 * TIMEOUT, "the connection is gone")
