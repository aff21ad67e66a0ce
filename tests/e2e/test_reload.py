import os
import pathlib
import re
import signal
import socket
import ssl
import subprocess

import pytest

from reload import is_bye, reload
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until

TOP = 'port = 0\nlog-level = "debug"\n'


def camera(number, keys="", stream_keys="", name=""):
    return f"""
[[camera]]
id = {number}
name = "{name or f'camera {number}'}"
{keys}
  [[camera.stream]]
  id = 0
  width = 160
  height = 120
  frame-rate = 25
  bit-rate = 100
  gop = 10
{stream_keys}
"""


@pytest.fixture
def ovrtspd(build_folder):
    return build_folder / "ovrtspd"


def watch(server, number, transport="tcp"):
    client = RtspClient(server.url(camera=number), transport)
    client.open()
    client.receive(lambda: len(client.rtp) > 5, "media")
    return client


def assert_nothing_lost(client):
    """Media go on, and no packet of either track is missing."""
    count = len(client.rtp)
    client.receive(lambda: len(client.rtp) > count + 20, "media go on")
    for track in range(len(client.tracks)):
        assert_no_gap(client.packets(track))


def wait_for_bye(client):
    client.receive(lambda: {track for track, data in client.rtcp if is_bye(data)} == set(range(len(client.tracks))),
                   "BYE on each track")


def test_a_wrong_configuration_changes_nothing_and_says_why(serve, ovrtspd):
    server = serve(TOP + camera(1))
    server.allow_problem("the configuration was not taken")
    with watch(server, 1) as client:
        run = reload(server, ovrtspd, TOP + camera(1) + camera(2, "port = 3\n"))
        assert run.returncode == 3
        assert re.search(r'ovrtspd.toml:\d+:1: unknown key "port"', run.stderr), run.stderr
        assert "nothing changed" in run.stderr and run.stdout == ""
        assert re.search(r"\[error\] .*ovrtspd.toml:\d+:1: unknown key \"port\"|nothing changed: .*unknown key", server.log())
        assert client.request("DESCRIBE", server.url(camera=2)).status == 404
        assert_nothing_lost(client)


def test_a_removed_camera_ends_its_viewers_and_nobody_else(serve, ovrtspd):
    server = serve(TOP + camera(1) + camera(2))
    with watch(server, 1) as stays, watch(server, 1, "udp") as stays_too, watch(server, 2) as goes, \
            watch(server, 2, "udp") as goes_too:
        run = reload(server, ovrtspd, TOP + camera(1))
        assert run.returncode == 0, run.stderr
        assert "changed: camera 2 removed" in run.stdout
        for client in (goes, goes_too):
            wait_for_bye(client)
            assert client.request("GET_PARAMETER").status == 454
            assert client.request("DESCRIBE", server.url(camera=2), {"Session": ""}).status in (404, 454)
        assert_nothing_lost(stays)
        assert_nothing_lost(stays_too)
    assert "its stream is not configured any more" in server.log()


def test_an_added_camera_can_be_watched_at_once(serve, ovrtspd):
    server = serve(TOP + camera(1))
    with watch(server, 1) as client:
        assert reload(server, ovrtspd, TOP + camera(1) + camera(7)).returncode == 0
        with watch(server, 7) as added:
            assert_nothing_lost(added)
        assert_nothing_lost(client)


def test_a_changed_encoder_restarts_its_source_alone(serve, ovrtspd):
    server = serve(TOP + camera(1) + camera(2))
    with watch(server, 1) as other, watch(server, 2) as viewer:
        changed = camera(2).replace("width = 160", "width = 320").replace("height = 120", "height = 240")
        assert reload(server, ovrtspd, TOP + camera(1) + changed).returncode == 0
        wait_until(lambda: server.log().count('camera 2/0 "camera 2": starting') >= 2, 10, "its source starts again")
        assert_nothing_lost(other)
        # The same session goes on, with the new size in its parameter sets.
        count = len(viewer.rtp)
        viewer.receive(lambda: any(7 in packet.nal_types() for packet in viewer.packets(viewer.video())
                                   if packet in viewer.rtp[count:]), "a key frame of the new source")
        assert not any(is_bye(data) for _, data in viewer.rtcp)
        description = RtspClient(server.url(camera=2))
        with description:
            description.describe()
    assert server.log().count('camera 1/0 "camera 1": starting') == 1


def test_another_source_ends_its_viewers(serve, ovrtspd):
    server = serve(TOP + camera(1) + camera(2))
    with watch(server, 1) as other, watch(server, 2) as viewer:
        assert reload(server, ovrtspd, TOP + camera(1) + camera(2, "", '  audio = "pcma"\n')).returncode == 0
        wait_for_bye(viewer)
        assert_nothing_lost(other)
        with RtspClient(server.url(camera=2)) as again:
            assert "PCMA" in again.describe()


USER = """
[[user]]
name = "anna"
password = "one"
live = "{live}"
"""


def status_of_login(server, credentials, number=1):
    run = subprocess.run(["ffprobe", "-v", "error", "-rtsp_transport", "tcp", server.url(number, credentials=credentials)],
                         capture_output=True, text=True, timeout=30, check=False)
    return re.search(r"401|403|404", run.stderr + " ").group(0) if run.returncode else "200"


def test_users_and_rights_change_at_once(serve, ovrtspd):
    server = serve(TOP + USER.format(live="*") + camera(1))
    server.allow_problem("everybody can read it|wrong password|refused")
    assert status_of_login(server, "anna:one") == "200"
    assert reload(server, ovrtspd, TOP + USER.format(live="*").replace('"one"', '"two"') + camera(1)).returncode == 0
    assert status_of_login(server, "anna:one") == "401"
    assert status_of_login(server, "anna:two") == "200"
    assert reload(server, ovrtspd, TOP + USER.format(live="none").replace('"one"', '"two"') + camera(1)).returncode == 0
    assert status_of_login(server, "anna:two") == "403"


def test_limits_change_at_once(serve, ovrtspd):
    server = serve(TOP + camera(1))
    with watch(server, 1) as first:
        assert reload(server, ovrtspd, TOP + "[limits]\nsessions = 1\n" + camera(1)).returncode == 0
        with RtspClient(server.url()) as second:
            second.describe()
            setup = {"Transport": "RTP/AVP/TCP;unicast;interleaved=0-1"}
            assert second.request("SETUP", second.tracks[0].url, setup).status == 503
            assert reload(server, ovrtspd, TOP + camera(1)).returncode == 0
            assert second.request("SETUP", second.tracks[0].url, setup).status == 200
        assert_nothing_lost(first)


def test_recording_is_switched_on_and_off_for_a_stream_alone(serve, ovrtspd, tmp_path):
    top = TOP + f'[recording]\ndirectory = "{tmp_path}/rec"\nsegment = 1\n'
    server = serve(top + camera(1, "", "  record = true\n") + camera(2))

    def files(number):
        return sorted((tmp_path / "rec" / str(number) / "0").glob("*.mkv"))

    wait_until(lambda: len(files(1)) >= 2, 20, "camera 1 is recorded")
    assert reload(server, ovrtspd, top + camera(1, "", "  record = true\n") + camera(2, "", "  record = true\n")).returncode == 0
    wait_until(lambda: len(files(2)) >= 3, 20, "camera 2 is recorded")
    assert reload(server, ovrtspd, top + camera(1, "", "  record = true\n") + camera(2)).returncode == 0
    stopped = len(files(2))
    before = len(files(1))
    wait_until(lambda: len(files(1)) >= before + 3, 20, "camera 1 goes on")
    assert len(files(2)) <= stopped + 1
    listing = subprocess.run([ovrtspd, "--recordings", "--config", str(server.config_path)], capture_output=True,
                             text=True, timeout=20, check=True).stdout
    assert re.search(r'camera 1/0.*: [0-9.]+ seconds, 0 gaps|camera 1/0.*: [0-9.]+ seconds\n', listing), listing


def test_what_needs_a_restart_is_named_and_stays(serve, ovrtspd):
    server = serve(TOP + camera(1))
    server.allow_problem("needs a restart of the server")
    for _ in range(2):
        run = reload(server, ovrtspd, TOP.replace("port = 0", "port = 1") + "[multicast]\nttl = 4\n" + camera(1))
        assert run.returncode == 0
        assert "port: needs a restart of the server" in run.stderr
        assert "[multicast] ttl: needs a restart of the server" in run.stderr
    with watch(server, 1) as client:
        assert_nothing_lost(client)
    assert "port changed: it needs a restart" in server.log()


def test_tls_is_switched_on_and_off(serve, ovrtspd, tmp_path):
    server = serve(TOP + camera(1))
    tls = f'[tls]\nport = 0\nself-signed = true\ndirectory = "{tmp_path}/tls"\n'
    with watch(server, 1) as client:
        assert reload(server, ovrtspd, TOP + tls + camera(1)).returncode == 0
        ports = listening_ports(server.pid) - {server.port}
        assert len(ports) == 1
        context = ssl.create_default_context()
        context.check_hostname = False
        context.verify_mode = ssl.CERT_NONE
        with socket.create_connection(("127.0.0.1", ports.pop()), timeout=10) as plain, \
                context.wrap_socket(plain) as secure:
            secure.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n")
            assert secure.recv(1000).startswith(b"RTSP/1.0 200")
            assert reload(server, ovrtspd, TOP + camera(1)).returncode == 0
            assert listening_ports(server.pid) == {server.port}
            # The connection goes on.
            secure.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 2\r\n\r\n")
            assert secure.recv(1000).startswith(b"RTSP/1.0 200")
        assert_nothing_lost(client)


def listening_ports(pid):
    own = {os.readlink(f"/proc/{pid}/fd/{entry}") for entry in os.listdir(f"/proc/{pid}/fd")}
    found = set()
    with open("/proc/net/tcp", encoding="ascii") as table:
        for line in list(table)[1:]:
            fields = line.split()
            if fields[3] == "0A" and f"socket:[{fields[9]}]" in own:
                found.add(int(fields[1].split(":")[1], 16))
    return found


def test_a_hangup_signal_reads_the_configuration_again(serve, ovrtspd, no_terminal):
    server = serve(TOP + camera(1), start=no_terminal)
    server.write_config(TOP + camera(1) + camera(2))
    server.process.send_signal(signal.SIGHUP)
    wait_until(lambda: "the configuration was read again" in server.log(), 10, "it is read")
    with watch(server, 2) as client:
        assert_nothing_lost(client)


@pytest.fixture
def no_terminal():
    """Starts a server as a service manager does: in a session of its own, SIGHUP not ignored."""
    def start(*arguments, **options):
        return subprocess.Popen(*arguments, start_new_session=True,
                                preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_DFL), **options)
    return start


def test_without_a_server_the_command_line_says_so(ovrtspd, tmp_path):
    (tmp_path / "none.toml").write_text(TOP)
    run = subprocess.run([ovrtspd, "--reload", "--config", tmp_path / "none.toml"], capture_output=True, text=True,
                         timeout=20, check=False)
    assert run.returncode == 1
    assert "no server of this machine runs with" in run.stderr
    assert subprocess.run([ovrtspd, "--reload"], capture_output=True, timeout=20, check=False).returncode == 2


def test_a_crowd_loses_nothing_and_nothing_is_left_over(build_folder):
    crowd = pathlib.Path(__file__).parents[2] / "bench" / "reload_crowd.py"
    run = subprocess.run([crowd, "--build", build_folder, "--viewers", "20", "--recordings", "2", "--reloads", "8", "--pause",
                          "1", "--json"], capture_output=True, text=True, timeout=150, check=False)
    assert run.returncode == 0, run.stdout + run.stderr
