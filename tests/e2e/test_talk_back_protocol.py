"""Talk-back on the wire: the description that clients get, the policies, the reports, and how sessions end."""

import math
import os
import pathlib
import re
import struct
import time
import wave

import pytest

from rtsp_client import RtspClient
from server import wait_until
from talk_sender import PACKET_SECONDS, REQUIRE, TalkSender, rtp, sender_report

pytestmark = pytest.mark.usefixtures("real_time")

CONFIG = """
port = 0
log-level = "debug"

[limits]
session-timeout = 2
orphan-timeout = 2
talk-senders = 50

[talk-back]
policy = "{policy}"
output = "wav"
device = "played.wav"
sample-rate = 8000

[[camera]]
id = 1
talk-back = "pcmu"
  [[camera.stream]]
  id = 0
  width = 320
  height = 240

[[camera]]
id = 2
  [[camera.stream]]
  id = 0
  width = 320
  height = 240
"""


@pytest.fixture
def server(serve):
    return serve(CONFIG.format(policy="first"))


def mu_law(sample):
    """One sample of 16 bits as mu-law (ITU-T G.711)."""
    sign = 0x80 if sample < 0 else 0
    magnitude = min(abs(sample), 32635) + 132
    exponent = magnitude.bit_length() - 8
    return ~(sign | exponent << 4 | (magnitude >> (exponent + 3)) & 0x0F) & 0xFF


def tone(hertz, amplitude=8000):
    """20 ms of a tone that goes through whole periods; 50 Hz is the step."""
    assert hertz % 50 == 0
    return bytes(mu_law(round(amplitude * math.sin(2 * math.pi * hertz * i / 8000))) for i in range(160))


def played(server):
    """The samples that the output has played so far."""
    path = server.folder / "played.wav"
    if not path.exists():
        return ()
    data = path.read_bytes()[44:]
    return struct.unpack(f"<{len(data) // 2}h", data[:len(data) // 2 * 2])


def level(samples, hertz):
    """Amplitude of a tone in the loudest stretch of 100 ms."""
    loudest = 0
    for begin in range(0, len(samples) - 799, 400):
        part = samples[begin:begin + 800]
        real = sum(s * math.cos(2 * math.pi * hertz * i / 8000) for i, s in enumerate(part))
        imaginary = sum(s * math.sin(2 * math.pi * hertz * i / 8000) for i, s in enumerate(part))
        loudest = max(loudest, 2 * math.hypot(real, imaginary) / len(part))
    return loudest


def owners(server):
    return re.findall(r"talk-back: (\S+).* has the audio output", server.log())


def wait_for_output(server):
    """The worker looks for something to do every 300 ms; what comes before is not played."""
    wait_until(lambda: (server.folder / "played.wav").exists(), 10, "the output is open")


def test_back_channel_is_described_only_where_it_is_required(server):
    with RtspClient(server.url()) as client:
        plain = client.request("DESCRIBE").body.decode()
        assert "sendonly" not in plain and "recvonly" not in plain and plain.count("m=") == 2
    with TalkSender(server.url()) as sender:
        section = sender.describe()
        assert section.startswith("audio 0 RTP/AVP 0\r\n")
        assert "a=rtpmap:0 PCMU/8000\r\n" in section
        directions = re.findall(r"a=(sendonly|recvonly|sendrecv)", sender.description)
        assert directions == ["recvonly", "recvonly", "sendonly"]
    with RtspClient(server.url(camera=2)) as client:
        response = client.request("DESCRIBE", headers=REQUIRE)
        assert response.status == 200
        assert "sendonly" not in response.body.decode(), "that camera has no talk-back"


def test_unknown_features_are_listed(server):
    with RtspClient(server.url()) as client:
        for method in ("DESCRIBE", "SETUP", "PLAY", "TEARDOWN"):
            response = client.request(method, headers={"Require": f"{REQUIRE['Require']}, www.example.org/teleport"})
            assert response.status == 551
            assert response.headers["unsupported"] == "www.example.org/teleport"


def test_a_session_from_setup_to_teardown(server, transport):
    with TalkSender(server.url(), transport) as sender:
        sender.describe()
        setup = sender.setup()
        assert "RECORD" not in setup.headers["transport"]
        play = sender.play()
        assert play.status == 200
        assert "rtp-info" not in play.headers
        wait_for_output(server)
        sender.talk(0.5, tone(1000))
        assert level(played(server)[-1600:], 1000) > 7000
        assert sender.client.request("TEARDOWN", headers=REQUIRE).status == 200
        wait_until(lambda: server.sessions() == 0, 5, "the session is gone")


def test_receiver_reports_have_the_loss(server, transport):
    with TalkSender(server.url(), transport) as sender:
        sender.open()
        wait_for_output(server)
        sender.talk(0.4, lost=lambda number: number in (3, 4, 9))
        first = sender.report()
        while not first.blocks:
            first = sender.report()
        assert first.types[:2] == [201, 202]
        assert first.ssrc == sender.report_ssrc
        assert first.source == sender.ssrc
        time.sleep(0.5)  # the sender pauses: its clock goes on, its timestamps do not
        sender.talk(1.0, lost=lambda number: number % 10 == 5)
        ntp = 0xE0000000_40000000
        sender.send(sender_report(sender.ssrc, ntp, sender.sequence * 160), rtcp=True)
        sent_at = time.monotonic()
        sender.talk(0.2)
        second = sender.report()
        waited = time.monotonic() - sent_at
        lost_later = 5
        assert second.highest == sender.sequence
        assert second.lost == 3 + lost_later
        expected = second.highest - first.highest
        lost_between = second.lost - first.lost
        assert second.fraction == lost_between * 256 // expected
        assert second.last_report == (ntp >> 16) & 0xFFFFFFFF
        assert abs(second.delay / 65536 - waited) < 0.1
        # Audio came as unevenly as it was sent, or a little more so: 8 ticks are a millisecond.
        assert abs(second.jitter - sender.jitter) < 80


def test_the_end_of_talk_back_sends_bye(server):
    with TalkSender(server.url(), "udp") as sender:
        sender.open()
        sender.talk(0.2)
        sender.report()
        assert sender.client.request("TEARDOWN", headers=REQUIRE).status == 200
        assert sender.report().bye


def test_bye_of_the_client_ends_its_talk_back(server, transport):
    with TalkSender(server.url(), transport) as sender:
        sender.open()
        wait_for_output(server)
        sender.talk(0.2)
        sender.send(sender_report(sender.ssrc, 1, 0, bye=True), rtcp=True)
        wait_until(lambda: "sent BYE" in server.log(), 5, "the BYE is received")
        wait_until(lambda: "ended;" in server.log(), 5, "talk-back has ended")
        assert sender.client.request("TEARDOWN").status == 200


def test_first_sender_keeps_the_output_until_it_is_silent(server):
    with TalkSender(server.url(), "udp") as anna, TalkSender(server.url(), "tcp") as bert:
        anna.open()
        bert.open()
        wait_for_output(server)
        together(anna, bert, 0.6)
        assert level(played(server), 1000) > 7000
        assert level(played(server), 600) < 300
        assert len(owners(server)) == 1
        bert.talk(1.0, tone(600))
        assert level(played(server), 600) > 7000
        assert len(owners(server)) == 2


def together(anna, bert, seconds):
    """Anna talks at 1000 Hz and Bert, who starts a tenth of a second later, at 600 Hz."""
    started = time.monotonic()
    for number in range(round(seconds / PACKET_SECONDS)):
        time.sleep(max(0, started + number * PACKET_SECONDS - time.monotonic()))
        anna.say(tone(1000))
        if number >= 5:
            bert.say(tone(600))


def test_newest_sender_wins(serve):
    server = serve(CONFIG.format(policy="newest"))
    with TalkSender(server.url(), "udp") as anna, TalkSender(server.url(), "tcp") as bert:
        anna.open()
        bert.open()
        wait_for_output(server)
        together(anna, bert, 1.0)
        time.sleep(0.2)
        samples = played(server)
        assert level(samples, 600) > 7000
        assert level(samples[-2400:], 1000) < 300, "the former sender is not played any more"
        assert len(owners(server)) == 2


def test_senders_are_mixed(serve):
    server = serve(CONFIG.format(policy="mix"))
    with TalkSender(server.url(), "udp") as anna, TalkSender(server.url(), "tcp") as bert:
        anna.open()
        bert.open()
        wait_for_output(server)
        together(anna, bert, 1.0)
        time.sleep(0.2)
        samples = played(server)
        assert level(samples, 600) > 7000
        assert level(samples, 1000) > 7000


def test_a_second_sender_is_refused(serve):
    server = serve(CONFIG.format(policy="refuse"))
    with TalkSender(server.url(), "udp") as anna, TalkSender(server.url(), "tcp") as bert:
        anna.open()
        bert.describe()
        assert bert.setup().status == 453
        assert anna.client.request("TEARDOWN").status == 200
        assert bert.setup().status == 200
        assert bert.play().status == 200


def test_a_vanished_client_leaves_no_session(server, transport):
    sender = TalkSender(server.url(), transport)
    sender.open()
    wait_for_output(server)
    sender.talk(0.3, tone(1000))
    sender.close()
    wait_until(lambda: server.sessions() == 0, 15, "the session is gone")
    wait_until(lambda: "ended;" in server.log(), 5, "talk-back has ended")


def test_audio_keeps_the_session_alive(server):
    """Longer than the session's time-out, with nothing but audio."""
    with TalkSender(server.url(), "udp") as sender:
        sender.open()
        sender.talk(3)
        assert server.sessions() == 1
        started = time.monotonic()
        wait_until(lambda: server.sessions() == 0, 15, "the silent session times out")
        assert time.monotonic() - started > 1


def test_malformed_packets_are_dropped_and_counted(server, transport):
    with TalkSender(server.url(), transport) as sender:
        sender.open()
        wait_for_output(server)
        sender.say(tone(1000))
        whole = rtp(1, 0, b"\x55" * 20)
        bad = [whole[:5], b"\x40" + whole[1:], b"\x8f" + whole[1:], b"\x90" + whole[1:12], b"\xa0" + whole[1:-1] + b"\xff",
               whole[:12], rtp(2, 0, b"x" * 20, payload_type=8), rtp(2, 0, b"x" * 20, ssrc=7)]
        for packet in bad:
            sender.send(packet)
        bad_rtcp = [b"", b"\x80", b"\x81\xcb\x00\x01abcd", b"\x80\xc8\x00\x06" + b"\0" * 8]
        for packet in bad_rtcp:
            sender.send(packet, rtcp=True)
        sender.talk(0.3, tone(1000))
        assert level(played(server)[-1600:], 1000) > 7000
        assert sender.client.request("TEARDOWN").status == 200
        wait_until(lambda: "ended;" in server.log(), 5, "talk-back has ended")
        counts = re.search(r"ended; (\d+) packets, (\d+) lost, (\d+) late, (\d+) dropped", server.log())
        packets, *others = [int(number) for number in counts.groups()]
        assert others == [0, 0, len(bad) + len(bad_rtcp)]
        assert packets in (15, 16), "the last one may have come too late for the worker"


def worker_seconds(server):
    """Processor time that the talk-back worker has used."""
    for task in pathlib.Path(f"/proc/{server.pid}/task").iterdir():
        name, _, rest = (task / "stat").read_text().partition("(")[2].rpartition(")")
        if name.startswith("OVAudioBack"):
            fields = rest.split()
            return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    raise AssertionError("the worker runs")


@pytest.mark.parametrize("policy", ["first", "mix"])
def test_fifty_senders_cost_the_worker_little(serve, policy):
    server = serve(CONFIG.format(policy=policy))
    senders = [TalkSender(server.url(), "udp") for _ in range(50)]
    try:
        for sender in senders:
            sender.open()
        wait_for_output(server)
        started, used = time.monotonic(), worker_seconds(server)
        for number in range(125):
            time.sleep(max(0, started + number * PACKET_SECONDS - time.monotonic()))
            for sender in senders:
                sender.say()
        share = (worker_seconds(server) - used) / (time.monotonic() - started)
        print(f"{policy}: {100 * share:.1f} % of a core")
        assert share < 0.1
    finally:
        for sender in senders:
            sender.close()
