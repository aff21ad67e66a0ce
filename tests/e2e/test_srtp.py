"""Encrypted media over UDP (SRTP): players that people have, and what is on the wire."""

import ffmpeg
import gstreamer
import pytest
import recordings
from network import groups_at_loopback
from server import DEFAULT_CONFIG, wait_until

TLS = """
[tls]
port = 0
self-signed = true
directory = "tls"
"""
FRAMES = 50
KEYS_IN_CLEAR = "can read its SRTP keys"


def secure(config, security, more=""):
    return f'security = "{security}"\n' + config + more


def play(url, transport, frames=FRAMES, *more):
    """Has rtspsrc decode so many video frames."""
    gstreamer.launch(url, transport, *more, "!", "application/x-rtp,media=video", "!", "rtph264depay", "!", "avdec_h264",
                     "!", "identity", f"eos-after={frames}", "!", "fakesink")


@pytest.mark.parametrize("transport", ["udp", "tcp"])
def test_rtspsrc_plays_what_requires_srtp(serve, transport):
    server = serve(secure(DEFAULT_CONFIG, "srtp"))
    server.allow_problem(KEYS_IN_CLEAR)
    play(server.url(), transport)


def test_rtspsrc_plays_an_encrypted_group(serve):
    with groups_at_loopback():
        server = serve(secure(DEFAULT_CONFIG, "srtp"))
        server.allow_problem(KEYS_IN_CLEAR)
        play(server.url(family="orv/multicast"), "udp-mcast")
        server.stop()


def test_rtspsrc_plays_with_keys_sent_over_tls(serve):
    server = serve(secure(DEFAULT_CONFIG, "srtp", TLS + '\n[srtp]\nkeys = "tls-only"\n'))
    play(server.tls_url(), "udp", FRAMES, "tls-validation-flags=0")


def test_rtspsrc_plays_srtp_that_it_asks_for(serve):
    server = serve(DEFAULT_CONFIG)
    play(server.url() + "?security=srtp", "udp")


@pytest.mark.parametrize("suite", ["AES_CM_128_HMAC_SHA1_32", "AEAD_AES_128_GCM"])
def test_rtspsrc_plays_other_suites(serve, suite):
    server = serve(secure(DEFAULT_CONFIG, "srtp", f'\n[srtp]\nsuite = "{suite}"\n'))
    server.allow_problem(KEYS_IN_CLEAR)
    play(server.url(), "udp")


def test_ffmpeg_plays_with_a_crypto_attribute(serve):
    """Over TLS it asks for RTP/AVP/TCP, whatever the description says, and decrypts with the key that stands there."""
    server = serve(secure(DEFAULT_CONFIG, "srtp", TLS))
    server.allow_problem(KEYS_IN_CLEAR)
    frames = ffmpeg.decode(server.tls_url(), "tcp", limits=("-frames:v", str(FRAMES)), maps=("0:v",))
    assert len(frames) == FRAMES


def test_ffmpeg_plays_inside_tls_what_requires_any_encryption(serve):
    server = serve(secure(DEFAULT_CONFIG, "any-encrypted", TLS))
    server.allow_problem(KEYS_IN_CLEAR)
    frames = ffmpeg.decode(server.tls_url(), "tcp", limits=("-frames:v", str(FRAMES)), maps=("0:v",))
    assert len(frames) == FRAMES
    play(server.url(), "udp")


def test_a_recording_plays_encrypted(build_folder, tmp_path):
    from server import Server
    film = recordings.film(build_folder)
    config = recordings.config(film, tmp_path / "recordings")
    with Server(build_folder / "ovrtspd", tmp_path / "server", config) as server:
        recorded = recordings.Recorded(server, film)
        path = tmp_path / "frames.mkv"
        gstreamer.launch(recorded.url + "?security=srtp", "udp", "!", "rtph264depay", "!", "h264parse", "!", "matroskamux", "!", "filesink",
                         f"location={path}", timeout=180)
        recorded.assert_whole_by_rtspsrc(len(gstreamer.packets(path)[1]))


@pytest.mark.parametrize("transport", ["udp", "tcp"])
def test_players_without_srtp_are_refused_with_a_reason(serve, transport):
    server = serve(secure(DEFAULT_CONFIG, "srtp"))
    server.allow_problem(KEYS_IN_CLEAR)
    run = ffmpeg.probe(server.url(), transport, check=False)
    assert run.returncode != 0
    assert "403 Forbidden" in run.stderr, run.stderr
    wait_until(lambda: "refused: its transport is not encrypted as the camera requires" in server.log(), 5,
               "the reason in the log")
