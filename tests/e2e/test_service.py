"""The server as a service manager sees it: its reports, its watchdog, and the sockets that it passes."""

import re
import socket
import subprocess

from rtsp_client import RtspClient
from server import DEFAULT_CONFIG, wait_until
from service_manager import ServiceManager, listening
from stopped_thread import StoppedThread, thread_named
from test_tls import TLS


def test_reports_when_it_serves_what_it_does_and_when_it_ends(serve, tmp_path):
    manager = ServiceManager(tmp_path)
    server = serve(start=manager.start)
    manager.wait_for("READY=1")
    # A client that connects now is served.
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
        assert re.fullmatch(r"STATUS=1 of 2 streams running, 1 viewer", manager.wait_for("STATUS=1 of"))
    manager.wait_for("STATUS=1 of 2 streams running, 0 viewers")
    server.stop()
    manager.wait_for("STOPPING=1")
    assert manager.received[0] == "READY=1"
    assert manager.received[-1] == "STOPPING=1"
    assert not [report for report in manager.received if report.startswith("WATCHDOG")]


def test_reports_nothing_of_a_start_that_fails(serve, build_folder, tmp_path):
    first = serve()
    manager = ServiceManager(tmp_path)
    process = manager.start([build_folder / "ovrtspd", "--port", first.port], stdout=subprocess.DEVNULL,
                            stderr=subprocess.DEVNULL)
    assert process.wait(20) == 1
    assert "READY=1" not in manager.read_waiting()


def test_wrong_configuration_ends_it_with_a_code_that_the_unit_does_not_restart(build_folder, tmp_path):
    (tmp_path / "wrong.toml").write_text("port = 70000\n")
    manager = ServiceManager(tmp_path)
    process = manager.start([build_folder / "ovrtspd", "--config", tmp_path / "wrong.toml"], stderr=subprocess.DEVNULL)
    code = process.wait(20)
    unit = (build_folder.parent.parent / "packaging/ovrtspd.service.in").read_text()
    refused = re.search(r"^RestartPreventExitStatus=(.*)$", unit, re.M).group(1).split()
    assert str(code) in refused
    assert manager.read_waiting() == []


def test_watchdog_starves_while_one_event_loop_hangs(serve, tmp_path):
    manager = ServiceManager(tmp_path, watchdog_seconds=4)
    server = serve(DEFAULT_CONFIG + "threads = 2\n", start=manager.start)
    server.allow_problem("the event loop rtsp-1 hangs: one of its turns takes longer than 2 s; the service manager will")
    for _ in range(5):
        manager.wait_for("WATCHDOG=1", 4)
    with StoppedThread(thread_named(server.pid, "rtsp-1")):
        wait_until(lambda: "rtsp-1 hangs" in server.log(), 15, "the hang is logged")
        manager.read_waiting()
        assert manager.read(5) is None
    manager.wait_for("WATCHDOG=1")
    wait_until(lambda: "the event loop rtsp-1 turns again" in server.log(), 10, "the end of the hang is logged")


def test_a_camera_s_event_loop_counts_too(serve, tmp_path):
    camera = serve()
    manager = ServiceManager(tmp_path, watchdog_seconds=4)
    server = serve(f"""{DEFAULT_CONFIG}threads = 1
[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "rtsp"
location = "{camera.url()}"
""", start=manager.start)
    server.allow_problem("ingest 0 hangs|source|frozen: no frames")
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
        with StoppedThread(thread_named(server.pid, "ingest 0")):
            wait_until(lambda: "the event loop ingest 0 hangs" in server.log(), 15, "the hang is logged")
            manager.read_waiting()
            assert manager.read(5) is None
        manager.wait_for("WATCHDOG=1")


def test_manager_that_does_not_read_holds_nothing_up(serve, tmp_path):
    manager = ServiceManager(tmp_path, watchdog_seconds=4)
    filler = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    filler.setblocking(False)
    try:
        while True:
            filler.sendto(b"STATUS=full", str(manager.path))
    except BlockingIOError:
        pass
    server = serve(start=manager.start)
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
    assert set(manager.read_waiting()) == {"STATUS=full"}
    manager.wait_for("READY=1")
    server.stop()


def test_serves_a_socket_that_the_manager_opened(serve, tmp_path):
    with listening() as passed:
        port = passed.getsockname()[1]
        manager = ServiceManager(tmp_path, sockets=[("rtsp", passed)])
        server = serve("listen = \"127.0.0.2\"\nport = 1\n", start=manager.start)
        assert (server.address, server.port) == ("127.0.0.1", port)
        for transport in ("tcp", "udp"):
            with RtspClient(server.url(), transport) as client:
                client.open()
                client.receive(lambda: len(client.rtp) > 10, "media")
        server.stop()
        # It is the manager's: clients wait for the next server.
        with socket.create_connection(("127.0.0.1", port)):
            pass


def test_client_that_waited_for_the_server_is_served(serve, tmp_path):
    with listening() as passed:
        url = f"rtsp://127.0.0.1:{passed.getsockname()[1]}/orv/live/1/0"
        with RtspClient(url) as client:
            serve(start=ServiceManager(tmp_path, sockets=[("rtsp", passed)]).start)
            client.open()
            client.receive(lambda: client.rtp, "media")


def test_serves_a_socket_of_both_families(serve, tmp_path):
    passed = socket.create_server(("::", 0), family=socket.AF_INET6, dualstack_ipv6=True)
    with passed:
        port = passed.getsockname()[1]
        manager = ServiceManager(tmp_path, sockets=[("rtsp", passed)])
        server = serve('[[user]]\nname = "viewer"\npassword = "horse"\nlive = "none"\n', start=manager.start)
        server.allow_problem("it holds passwords")
        for address in ("127.0.0.1", "::1"):
            with socket.create_connection((address, port), 10) as client:
                client.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n")
                assert client.recv(1000).startswith(b"RTSP/1.0 200")
        server.stop()


def test_serves_tls_on_a_passed_socket(serve, tmp_path):
    with listening() as plain, listening() as encrypted:
        manager = ServiceManager(tmp_path, sockets=[("rtsps", encrypted), ("rtsp", plain)])
        server = serve(DEFAULT_CONFIG + TLS, start=manager.start)
        assert server.port == plain.getsockname()[1]
        assert f":{encrypted.getsockname()[1]}/" in server.tls_url()
        server.stop()


def test_sockets_that_cannot_be_used_are_warned_of(serve, tmp_path):
    with listening() as plain, listening() as encrypted, listening() as other:
        manager = ServiceManager(tmp_path, sockets=[("rtsp", plain), ("rtsps", encrypted), ("web", other)])
        server = serve(start=manager.start)
        server.allow_problem("the service manager passes a socket for rtsps, but tls has no certificate")
        server.allow_problem('the socket "web" of the service manager is not used: FileDescriptorName= must be one of rtsp, rtsps')
        server.stop()
        assert len(re.findall("a socket for rtsps, but|the socket .web. of", server.log())) == 2
