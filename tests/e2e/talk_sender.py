"""A client that talks: sends audio of its own making on a camera's back channel."""

import re
import select
import struct
import time

from rtsp_client import PATIENCE, RtspClient, udp_pair

REQUIRE = {"Require": "www.onvif.org/ver20/backchannel"}
PACKET_SECONDS = 0.02


def rtp(sequence, timestamp, payload, payload_type=0, ssrc=0x01020304, marker=False):
    return struct.pack("!BBHII", 0x80, payload_type | (0x80 if marker else 0), sequence & 0xFFFF,
                       timestamp & 0xFFFFFFFF, ssrc) + payload


def sender_report(ssrc, ntp, rtp_time, bye=False):
    """SR with SDES, and BYE if requested. `ntp` is the 64-bit NTP time."""
    report = struct.pack("!BBHIQIII", 0x80, 200, 6, ssrc, ntp, rtp_time & 0xFFFFFFFF, 0, 0)
    name = struct.pack("!BBHIBB", 0x81, 202, 3, ssrc, 1, 4) + b"talk\0\0"
    return report + name + (struct.pack("!BBHI", 0x81, 203, 1, ssrc) if bye else b"")


class ReceiverReport:
    """The first packet of a compound RTCP packet, and whether a BYE stands in it."""

    def __init__(self, data):
        assert data[0] >> 6 == 2 and data[1] == 201, data.hex()
        self.blocks = data[0] & 0x1F
        self.ssrc = int.from_bytes(data[4:8], "big")
        if self.blocks:
            (self.source, lost, self.highest, self.jitter, self.last_report,
             self.delay) = struct.unpack("!IIIIII", data[8:32])
            self.fraction = lost >> 24
            self.lost = (lost & 0xFFFFFF) - (0x1000000 if lost & 0x800000 else 0)
        self.types = []
        while data:
            self.types.append(data[1])
            data = data[4 + 4 * int.from_bytes(data[2:4], "big"):]
        self.bye = 203 in self.types


class TalkSender:
    """One session with nothing but the back channel, unless `client` brings a session of its own."""

    def __init__(self, url, transport="tcp", client=None):
        self.client = client or RtspClient(url)
        self.transport = transport
        self.sockets = ()
        self.description = None
        self.track = None
        self.channel = None
        self.reports = []
        self.sequence = 0
        self.jitter = 0  # in ticks, of the instants at which packets were sent (RFC 3550, appendix A.8)
        self._transit = None
        self.ssrc = 0x01020304

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.client.close()
        for media_socket in self.sockets:
            media_socket.close()

    def describe(self):
        response = self.client.request("DESCRIBE", headers={"Accept": "application/sdp", **REQUIRE})
        assert response.status == 200, response
        self.description = response.body.decode()
        section = next(s for s in re.split(r"^m=", self.description, flags=re.M) if "a=sendonly" in s)
        base = response.headers["content-base"]
        self.track = base.rstrip("/") + "/" + re.search(r"a=control:(\S+)", section).group(1)
        return section

    def setup(self):
        """Returns the response; the session is known when it is a good one."""
        if self.transport == "udp":
            self.sockets = udp_pair()
            port = self.sockets[0].getsockname()[1]
            transport_header = f"RTP/AVP;unicast;client_port={port}-{port + 1}"
        else:
            transport_header = "RTP/AVP/TCP;unicast"
        response = self.client.request("SETUP", self.track, {"Transport": transport_header, **REQUIRE})
        if response.status != 200:
            return response
        self.client.session = response.headers["session"].split(";")[0]
        answered = response.headers["transport"]
        self.report_ssrc = int(re.search(r"ssrc=([0-9A-Fa-f]{8})", answered).group(1), 16)
        if self.transport == "udp":
            rtp_port, rtcp_port = re.search(r"server_port=(\d+)-(\d+)", answered).groups()
            host = self.client.socket.getpeername()[0]
            self.sockets[0].connect((host, int(rtp_port)))
            self.sockets[1].connect((host, int(rtcp_port)))
        else:
            self.channel = int(re.search(r"interleaved=(\d+)-", answered).group(1))
        return response

    def play(self):
        return self.client.request("PLAY", headers=REQUIRE)

    def open(self):
        section = self.describe()
        assert self.setup().status == 200
        assert self.play().status == 200
        return section

    def send(self, data, rtcp=False):
        if self.transport == "udp":
            self.sockets[1 if rtcp else 0].send(data)
        else:
            frame = b"$" + bytes([self.channel + (1 if rtcp else 0)]) + len(data).to_bytes(2, "big")
            self.client.socket.sendall(frame + data)

    def say(self, payload=b"\x55" * 160, lose=False):
        """The next packet of 20 ms; with `lose` it only counts."""
        self.sequence += 1
        if lose:
            return
        transit = time.monotonic() * 8000 - self.sequence * 160
        if self._transit is not None:
            self.jitter += (abs(transit - self._transit) - self.jitter) / 16
        self._transit = transit
        self.send(rtp(self.sequence, self.sequence * 160, payload, ssrc=self.ssrc))

    def talk(self, seconds, payload=b"\x55" * 160, lost=lambda number: False):
        """Talks in real time."""
        started = time.monotonic()
        for number in range(round(seconds / PACKET_SECONDS)):
            time.sleep(max(0, started + number * PACKET_SECONDS - time.monotonic()))
            self.say(payload, lost(number))

    def report(self, seconds=PATIENCE):
        """The next receiver report."""
        end = time.monotonic() + seconds
        if self.transport == "udp":
            assert select.select([self.sockets[1]], [], [], seconds)[0], "no receiver report"
            return ReceiverReport(self.sockets[1].recv(2048))
        known = len(self.client.rtcp)
        while len(self.client.rtcp) == known:
            self.client._receive_once(end, "no receiver report")
        return ReceiverReport(self.client.rtcp[-1][1])

