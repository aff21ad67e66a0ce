"""RTSP over TLS: players that people have, and openssl."""

import hashlib
import re
import socket
import ssl
import subprocess
import urllib.parse

import ffmpeg
import gstreamer
import pytest
import recordings
from audio import LEAD_SECONDS, RATE, decode, encode, likeness, read_wav, speech, with_lead, write_wav
from server import DEFAULT_CONFIG, wait_until
from speaker import talk_back, wait_for_end

TLS = """
[tls]
port = 0
self-signed = true
directory = "tls"
"""
USERS = """
[[user]]
name = "viewer"
password = "horse"
live = "*"
"""
FRAMES = 50


@pytest.fixture
def encrypted(serve):
    return serve(DEFAULT_CONFIG + TLS)


def endpoint(server):
    parts = urllib.parse.urlsplit(server.tls_url())
    return parts.hostname, parts.port


def handshake(server, **options):
    """The socket of a client that trusts anybody."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    for name, value in options.items():
        setattr(context, name, value)
    return context.wrap_socket(socket.create_connection(endpoint(server), timeout=10))


def fingerprint(server):
    """Of the certificate that a client gets."""
    with handshake(server) as client:
        return hashlib.sha256(client.getpeercert(binary_form=True)).hexdigest()


def test_ffmpeg_plays_live(encrypted):
    frames = ffmpeg.decode(encrypted.tls_url(), "tcp", limits=("-frames:v", str(FRAMES)), maps=("0:v",))
    assert len(frames) == FRAMES


def test_ffprobe_sees_both_tracks_with_a_login(serve):
    server = serve(DEFAULT_CONFIG + TLS + USERS)
    server.allow_problem("it holds passwords and everybody can read it")
    url = server.tls_url().replace("rtsps://", "rtsps://viewer:horse@")
    assert set(ffmpeg.probe(url, "tcp")) == {"video", "audio"}


@pytest.mark.parametrize("transport", ["tcp", "udp"])
def test_rtspsrc_plays_live(encrypted, transport, tmp_path):
    gstreamer.launch(encrypted.tls_url(), transport, "tls-validation-flags=0", "!", "application/x-rtp,media=video", "!",
                     "rtph264depay", "!", "avdec_h264", "!", "identity", f"eos-after={FRAMES}", "!", "fakesink")


def test_a_recording_plays_over_tls(build_folder, tmp_path):
    from server import Server
    film = recordings.film(build_folder)
    config = recordings.config(film, tmp_path / "recordings") + TLS
    with Server(build_folder / "ovrtspd", tmp_path / "server", config) as server:
        recorded = recordings.Recorded(server, film)
        url = server.tls_url(urllib.parse.urlsplit(recorded.url).path.lstrip("/"))
        frames = ffmpeg.decode(url, "tcp", limits=(), keep_times=False)
        assert len(frames) == len(recorded.whole)
        path = tmp_path / "frames.mkv"
        gstreamer.launch(url, "tcp", "tls-validation-flags=0", "!", "rtph264depay", "!", "h264parse", "!", "matroskamux",
                         "!", "filesink", f"location={path}", timeout=40)
        recorded.assert_whole_by_rtspsrc(len(gstreamer.packets(path)[1]))


@pytest.mark.usefixtures("real_time")
def test_talk_back_is_played_over_tls(serve, build_folder):
    server = serve(talk_back() + TLS)
    said = with_lead(speech())
    ideal = decode("pcmu", encode("pcmu", said))[int(LEAD_SECONDS * RATE):]
    write_wav(server.folder / "said.wav", said)
    run = subprocess.run([build_folder / "gst_talk", server.tls_url(), server.folder / "said.wav", "tcp"],
                         capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stdout + run.stderr
    wait_for_end(server)
    server.stop()
    assert likeness(ideal, read_wav(server.folder / "talk.wav")) > 0.9


def test_the_printed_fingerprint_is_the_certificate_s(encrypted):
    printed = re.search(r"certificate SHA-256 ([0-9A-F:]+)", encrypted.output()).group(1)
    assert printed.replace(":", "").lower() == fingerprint(encrypted)


@pytest.mark.parametrize("version", ["-tls1_2", "-tls1_3"])
def test_openssl_gets_an_answer(encrypted, version):
    host, port = endpoint(encrypted)
    run = subprocess.run(["openssl", "s_client", "-connect", f"{host}:{port}", version, "-ign_eof", "-crlf"],
                         input=f"OPTIONS {encrypted.tls_url()} RTSP/1.0\nCSeq: 1\nConnection: close\n\n",
                         capture_output=True, text=True, timeout=20)
    assert "RTSP/1.0 200 OK" in run.stdout, run.stdout + run.stderr
    assert "Secure Renegotiation IS" in run.stdout + run.stderr


def test_openssl_cannot_use_an_older_version(encrypted):
    host, port = endpoint(encrypted)
    run = subprocess.run(["openssl", "s_client", "-connect", f"{host}:{port}", "-tls1_1", "-cipher", "ALL:@SECLEVEL=0"],
                         input="", capture_output=True, text=True, timeout=20)
    assert "Cipher is (NONE)" in run.stdout


@pytest.mark.parametrize("version", [ssl.TLSVersion.TLSv1_2, ssl.TLSVersion.TLSv1_3])
def test_sessions_are_resumed(encrypted, version):
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    context.minimum_version = context.maximum_version = version
    session = None
    for resumed in (False, True):
        with context.wrap_socket(socket.create_connection(endpoint(encrypted), timeout=10), session=session) as client:
            client.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n")
            assert client.recv(4096).startswith(b"RTSP/1.0 200")
            assert client.session_reused == resumed
            session = client.session


def test_a_replaced_certificate_serves_new_clients_and_keeps_old_ones(encrypted):
    folder = encrypted.folder / "tls"
    with handshake(encrypted) as old:
        before = fingerprint(encrypted)
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                        folder / "key.pem", "-out", folder / "certificate.pem", "-subj", "/CN=new", "-days", "30"],
                       check=True, capture_output=True, timeout=20)
        wait_until(lambda: fingerprint(encrypted) != before, 10, "the new certificate is served")
        old.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n")
        assert old.recv(4096).startswith(b"RTSP/1.0 200")
        # A file that is no certificate changes nothing.
        now = fingerprint(encrypted)
        (folder / "certificate.pem").write_text("nothing")
        encrypted.allow_problem("TLS goes on with the certificate that it has")
        wait_until(lambda: "TLS goes on" in encrypted.log(), 10, "the bad file is noticed")
        assert fingerprint(encrypted) == now
    assert encrypted.log().count("TLS goes on") == 1


def test_check_config_names_a_certificate_that_cannot_be_used(build_folder, tmp_path):
    config = tmp_path / "wrong.toml"
    config.write_text('[tls]\ncertificate = "none.pem"\n')
    run = subprocess.run([build_folder / "ovrtspd", "--check-config", "-c", config], capture_output=True, text=True, timeout=20)
    assert run.returncode == 3
    assert f"certificate {tmp_path}/none.pem: No such file or directory" in run.stderr
