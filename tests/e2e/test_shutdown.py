import signal
import subprocess

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


def test_sigterm_with_clients_connected(serve):
    server = serve()
    server.stop(signal.SIGTERM)


HANGING = '''
port = 0

[[camera]]
id = 1
name = "cellar"

[[camera.stream]]
id = 0
source = "launch"
location = """videotestsrc is-live=true ! video/x-raw,width=160,height=90 ! x264enc tune=zerolatency ! tee name=both
both. ! filesink location={reached} buffer-mode=unbuffered async=false
both. ! identity name=video sleep-time=60000000"""
'''


def test_hanging_source_does_not_delay_shutdown(serve, tmp_path):
    reached = tmp_path / "reached.h264"
    server = serve(HANGING.format(reached=reached))
    server.allow_problem('camera 1/0 "cellar": the source does not end, it is abandoned')
    with RtspClient(server.url()) as client:
        client.socket.sendall(f"DESCRIBE {server.url()} RTSP/1.0\r\nCSeq: 1\r\n\r\n".encode())
        # The same thread sleeps next, in the other branch.
        wait_until(lambda: reached.exists() and reached.stat().st_size > 0, 20, "the source reaches what hangs")
        server.stop(signal.SIGTERM, max_seconds=3)
    assert "it is abandoned" in server.log()


def test_port_can_be_reused_at_once(serve):
    first = serve()
    port = first.port
    with RtspClient(first.url()) as client:
        client.open()
        first.stop()
        second = serve(f"port = {port}\n")
    assert second.port == port


def test_port_in_use_is_reported(serve, build_folder, tmp_path):
    server = serve()
    run = subprocess.run([build_folder / "ovrtspd", "--port", str(server.port)], capture_output=True, text=True,
                         timeout=20)
    assert run.returncode == 1
    assert str(server.port) in run.stderr
