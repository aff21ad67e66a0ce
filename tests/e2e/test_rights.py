"""Users, what they may watch, and how their passwords are kept."""

import json
import pathlib
import socket
import ssl
import subprocess
import urllib.parse

import ffmpeg
import pytest
from reload import reload

CAMERAS = """
[[camera]]
id = 1
[[camera.stream]]
width = 320
height = 180

[[camera]]
id = 2
[[camera.stream]]
width = 320
height = 180
"""


def hashed(build_folder, name, password, *options):
    """The line that the program prints for a password."""
    run = subprocess.run([build_folder / "ovrtspd", "--hash-password", name, *options], input=password + "\n",
                         capture_output=True, text=True, timeout=20, check=True)
    return run.stdout


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    from server import Server

    folder = tmp_path_factory.mktemp("server")
    users = folder / "users.toml"
    users.write_text(
        f'[[user]]\nname = "guard"\nlive = "1"\n{hashed(build_folder, "guard", "correct-horse")}'
        f'[[user]]\nname = "slow"\nlive = "2"\n{hashed(build_folder, "slow", "battery-staple", "--basic-only")}'
        '[[user]]\nname = "anonymous"\nlive = "2"\n')
    users.chmod(0o600)
    config = f'port = 0\nlog-level = "trace"\nusers-file = "{users}"\n[tls]\nport = 0\nself-signed = true\ndirectory = "tls"\n{CAMERAS}'
    with Server(build_folder / "ovrtspd", folder, config) as instance:
        yield instance
        everything = instance.log() + instance.output() + pathlib.Path(f"/proc/{instance.pid}/cmdline").read_text()
        for secret in ("correct-horse", "battery-staple", "$y$", "md5:"):
            assert secret not in everything


def outcome(url, transport="tcp"):
    return ffmpeg.probe(url, transport, check=False)


def test_a_user_watches_its_own_camera(server, transport):
    frames = ffmpeg.decode(server.url(1, credentials="guard:correct-horse"), transport, limits=("-frames:v", "5"), maps=("0:v",))
    assert len(frames) == 5


def test_another_camera_is_forbidden(server):
    # ffmpeg logs in once it is asked to; camera 2 is anonymous' as well, so the user's name is what counts there.
    run = outcome(server.url(3, credentials="guard:correct-horse"))
    assert run.returncode != 0
    assert "403 Forbidden" in run.stderr
    assert 'right-refused address=127.0.0.1 user="guard" right=live url="' in server.log()


def test_whoever_does_not_log_in_watches_what_anonymous_may(server):
    assert outcome(server.url(2)).returncode == 0
    run = outcome(server.url(1))
    assert "401 Unauthorized" in run.stderr


def test_a_memory_hard_hash_logs_in_over_tls(server):
    url = server.tls_url("orv/live/1/0")
    run = outcome(url.replace("rtsps://", "rtsps://slow:battery-staple@"))
    assert "403 Forbidden" in run.stderr
    run = outcome(url.replace("rtsps://", "rtsps://guard:correct-horse@"))
    assert run.returncode == 0, run.stderr
    run = outcome(url.replace("rtsps://", "rtsps://slow:wrong@"))
    assert "401 Unauthorized" in run.stderr


def certificate(folder, name, issuer=None):
    """A certificate and its key with a common name, signed by another one or by itself: their files."""
    pem, key = folder / f"{name}.pem", folder / f"{name}-key.pem"
    signed = ["-CA", issuer[0], "-CAkey", issuer[1]] if issuer else []
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "1",
                    "-subj", f"/CN={name}", "-keyout", key, "-out", pem, *signed], capture_output=True, timeout=20, check=True)
    return pem, key


def status(server, path, client=None):
    """Of a DESCRIBE over TLS, by a client with a certificate."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    if client:
        context.load_cert_chain(*client)
    url = urllib.parse.urlsplit(server.tls_url(path))
    with socket.create_connection((url.hostname, url.port), timeout=10) as plain, context.wrap_socket(plain) as encrypted:
        encrypted.sendall(f"DESCRIBE {url.geturl()} RTSP/1.0\r\nCSeq: 1\r\n\r\n".encode())
        return int(encrypted.recv(4096).split()[1])


def test_a_certificate_is_a_login_until_its_user_is_gone(serve, build_folder, tmp_path):
    ca = certificate(tmp_path, "ca")
    recorder, stranger = certificate(tmp_path, "recorder", ca), certificate(tmp_path, "recorder-2")
    users = tmp_path / "users" / "users.toml"
    users.parent.mkdir()
    users.write_text('[[user]]\nname = "recorder"\nlive = "1"\nplayback = "1"\n[[user]]\nname = "boss"\npassword = "secret"\nlive = "*"\n')
    users.chmod(0o600)
    server = serve(f'port = 0\nlog-level = "debug"\nusers-file = "{users}"\n{CAMERAS}'
                   f'[tls]\nport = 0\nself-signed = true\ndirectory = "tls"\nclient-ca = "{ca[0]}"\ncertificate-users = true\n'
                   '[http]\nlisten = "127.0.0.1:0"\ntls = true\n')
    assert status(server, "orv/live/1/0", recorder) == 200
    assert status(server, "orv/live/2/0", recorder) == 403
    with pytest.raises((ssl.SSLError, ConnectionError, IndexError)):
        status(server, "orv/live/1/0", stranger)

    port = server.http_port()
    listed = subprocess.run(["curl", "-sSk", "--cert", recorder[0], "--key", recorder[1],
                             f"https://127.0.0.1:{port}/api/v1/cameras"], capture_output=True, text=True, timeout=20, check=True)
    assert [camera["id"] for camera in json.loads(listed.stdout)["cameras"]] == [1]

    # The file is in a folder of its own, and is read again.
    users.write_text('[[user]]\nname = "boss"\npassword = "secret"\nlive = "*"\n')
    run = reload(server, build_folder / "ovrtspd")
    assert 'user "recorder" removed' in run.stdout, run.stdout + run.stderr
    assert status(server, "orv/live/1/0", recorder) == 401
