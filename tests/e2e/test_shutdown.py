import signal
import subprocess
import time

from rtsp_client import RtspClient
from server import wait_until


def test_ctrl_c_with_clients_connected(serve):
    server = serve()
    players = [
        subprocess.Popen(["ffmpeg", "-nostdin", "-v", "error", "-rtsp_transport", transport, "-i", server.url(), "-f", "null", "-"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for transport in ("tcp", "udp")]
    try:
        with RtspClient(server.url(), "udp") as client:
            client.open()
            client.receive(lambda: len(client.rtp) > 50, "media")
            wait_until(lambda: server.connections() == 3, 15, "all clients are connected")
            server.stop()
    finally:
        for player in players:
            player.kill()
            player.wait()


def test_sigterm_ends_it_as_well(serve):
    server = serve()
    begin = time.monotonic()
    server.process.send_signal(signal.SIGTERM)
    assert server.process.wait(timeout=10) == 0
    assert time.monotonic() - begin < 1


HANGING = """
port = 0

[[camera]]
id = 1
name = "cellar"

[[camera.stream]]
id = 0
source = "launch"
location = "videotestsrc is-live=true ! video/x-raw,width=160,height=90 ! x264enc tune=zerolatency ! identity name=video sleep-time=60000000"
"""


def test_source_that_hangs_does_not_keep_it(serve):
    server = serve(HANGING)
    server.allow_problem('camera 1/0 "cellar": the source does not end, it is abandoned')
    with RtspClient(server.url()) as client:
        client.socket.sendall(f"DESCRIBE {server.url()} RTSP/1.0\r\nCSeq: 1\r\n\r\n".encode())
        wait_until(lambda: "camera 1/0 \"cellar\": starting" in server.log(), 10, "the source starts")
        time.sleep(1)  # until it hangs, which nobody tells
        begin = time.monotonic()
        server.process.send_signal(signal.SIGTERM)
        assert server.process.wait(timeout=10) == 0
        assert time.monotonic() - begin < 3
    assert server.problems() == []
    assert "it is abandoned" in server.log()


def test_port_can_be_taken_again_at_once(serve):
    first = serve()
    port = first.port
    with RtspClient(first.url()) as client:
        client.open()
        first.stop()
        second = serve(f"port = {port}\n")
    assert second.port == port


def test_taken_port_is_told(serve, build_folder, tmp_path):
    server = serve()
    run = subprocess.run([build_folder / "ovrtspd", "--port", str(server.port)], capture_output=True, text=True,
                         timeout=20)
    assert run.returncode == 1
    assert str(server.port) in run.stderr
