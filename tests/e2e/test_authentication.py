import ffmpeg
import pycurl
import pytest
from rtsp_client import RtspClient
from test_curl import Curl

CONFIG = """
port = 0
log-level = "trace"

[[user]]
name = "viewer"
password = "correct-horse"
"""


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    from server import Server

    with Server(build_folder / "ovrtspd", tmp_path_factory.mktemp("server"), CONFIG) as instance:
        instance.allow_problem(r"401|authenti|password|credential")
        yield instance
        assert "correct-horse" not in instance.log() + instance.output()
        assert "wrong-horse" not in instance.log() + instance.output()


def test_ffmpeg_with_the_password(server, transport):
    frames = ffmpeg.decode(server.url(credentials="viewer:correct-horse"), transport, limits=("-frames:v", "25"),
                           maps=("0:v",))
    assert len(frames) == 25


@pytest.mark.parametrize("credentials", ["", "viewer:wrong-horse", "nobody:correct-horse"])
def test_ffmpeg_without_it(server, credentials):
    run = ffmpeg.probe(server.url(credentials=credentials), "tcp", check=False)
    assert run.returncode != 0
    assert "401 Unauthorized" in run.stderr


def test_curl_with_digest(server):
    curl = Curl(server.url(), "viewer:correct-horse")
    status, _, body = curl.ask(pycurl.RTSPREQ_DESCRIBE, server.url())
    if status == 401:
        # libcurl learns the challenge from the first answer and signs the next request.
        status, _, body = curl.ask(pycurl.RTSPREQ_DESCRIBE, server.url())
    assert status == 200
    assert body.startswith(b"v=0\r\n")


def test_curl_with_a_wrong_password(server):
    curl = Curl(server.url(), "viewer:wrong-horse")
    for _ in range(2):
        status, _, body = curl.ask(pycurl.RTSPREQ_DESCRIBE, server.url())
    assert status == 401
    assert body == b""


def test_challenges_without_tls_offer_md5_first_then_sha256_and_no_basic(server):
    with RtspClient(server.url()) as client:
        client.socket.sendall(f"DESCRIBE {server.url()} RTSP/1.0\r\nCSeq: 1\r\n\r\n".encode())
        answer = client.socket.recv(65536).decode()
    assert answer.startswith("RTSP/1.0 401 ")
    challenges = [line for line in answer.split("\r\n") if line.lower().startswith("www-authenticate:")]
    assert "Digest" in challenges[0] and "algorithm=MD5" in challenges[0]
    assert "Digest" in challenges[1] and "algorithm=SHA-256" in challenges[1]
    assert len(challenges) == 3
    assert all("Digest" in line and 'qop="auth"' in line for line in challenges)


def test_every_method_is_guarded(server):
    for method in ("DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER", "SET_PARAMETER"):
        with RtspClient(server.url()) as client:
            assert client.request(method).status == 401, method
