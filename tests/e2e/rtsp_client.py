"""A small RTSP client on plain sockets, which hides nothing of what the server sends."""

import dataclasses
import re
import select
import socket
import time

PATIENCE = 10.0


@dataclasses.dataclass
class Response:
    status: int
    headers: dict
    body: bytes
    media_before: int  # how many RTP packets came before it


@dataclasses.dataclass
class RtpPacket:
    track: int
    payload_type: int
    marker: bool
    sequence: int
    timestamp: int
    ssrc: int
    payload: bytes
    datagram: bool
    extension: tuple = None  # profile and data of the header extension (RFC 3550, section 5.3.1)

    @staticmethod
    def parse(track, data, datagram):
        assert len(data) > 12 and data[0] >> 6 == 2, f"no RTP: {data[:16].hex()}"
        start = 12 + 4 * (data[0] & 0x0F)
        extension = None
        if data[0] & 0x10:
            size = 4 * int.from_bytes(data[start + 2:start + 4], "big")
            extension = (int.from_bytes(data[start:start + 2], "big"), data[start + 4:start + 4 + size])
            assert len(extension[1]) == size, "the header extension is whole"
            start += 4 + size
        return RtpPacket(track, data[1] & 0x7F, bool(data[1] & 0x80), int.from_bytes(data[2:4], "big"),
                         int.from_bytes(data[4:8], "big"), int.from_bytes(data[8:12], "big"), data[start:],
                         datagram, extension)

    def nal_types(self):
        """The types of the H.264 NAL units that start in this packet (RFC 6184)."""
        kind = self.payload[0] & 0x1F
        if kind == 28:
            return [self.payload[1] & 0x1F] if self.payload[1] & 0x80 else []
        if kind != 24:
            return [kind]
        types, at = [], 1
        while at + 2 < len(self.payload):
            types.append(self.payload[at + 2] & 0x1F)
            at += 2 + int.from_bytes(self.payload[at:at + 2], "big")
        return types


@dataclasses.dataclass
class Track:
    url: str
    media: str
    ssrc: int = None
    sockets: tuple = ()


class RtspClient:
    """Connects at once. Media that come while a response is awaited are kept for receive()."""

    def __init__(self, url, transport="tcp"):
        self.url = url
        self.transport = transport
        host, port = re.match(r"rtsp://(?:[^@/]*@)?([^:/]+):(\d+)", url).groups()
        self.socket = socket.create_connection((host, int(port)), timeout=PATIENCE)
        self.cseq = 0
        self.session = None
        self.session_header = None
        self.content_base = None
        self.played_at = 0  # how many RTP packets came before the last answer to PLAY
        self.answer = None  # the last answer to PLAY
        self.tracks = []
        self.rtp = []
        self.rtcp = []
        self.rtcp_after = []  # for each of them, how many RTP packets came before it
        self._buffer = b""
        self._responses = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.socket.close()
        for track in self.tracks:
            for media_socket in track.sockets:
                media_socket.close()

    def request(self, method, url=None, headers=None):
        self.cseq += 1
        lines = [f"{method} {url or self.content_base or self.url} RTSP/1.0", f"CSeq: {self.cseq}"]
        if self.session and "Session" not in (headers or {}):
            lines.append(f"Session: {self.session}")
        lines += [f"{name}: {value}" for name, value in (headers or {}).items()]
        self.socket.sendall(("\r\n".join(lines) + "\r\n\r\n").encode())
        end = time.monotonic() + PATIENCE
        while not self._responses:
            self._receive_once(end, f"no answer to {method}")
        response = self._responses.pop(0)
        assert response.headers.get("cseq") == str(self.cseq)
        return response

    def describe(self):
        response = self.request("DESCRIBE", headers={"Accept": "application/sdp"})
        assert response.status == 200, response
        self.content_base = response.headers.get("content-base", self.url)
        base = self.content_base if self.content_base.endswith("/") else self.content_base + "/"
        text = response.body.decode()
        for section in re.split(r"^m=", text, flags=re.M)[1:]:
            control = re.search(r"a=control:(\S+)", section).group(1)
            self.tracks.append(Track(control if control.startswith("rtsp:") else base + control,
                                     section.split(" ", 1)[0], sockets=udp_pair() if self.transport == "udp" else ()))
        return text

    def setup_all(self, headers=None):
        for index, track in enumerate(self.tracks):
            if self.transport == "tcp":
                transport_header = f"RTP/AVP/TCP;unicast;interleaved={2 * index}-{2 * index + 1}"
            else:
                port = track.sockets[0].getsockname()[1]
                transport_header = f"RTP/AVP;unicast;client_port={port}-{port + 1}"
            response = self.request("SETUP", track.url, {"Transport": transport_header, **(headers or {})})
            assert response.status == 200, response
            self.session_header = response.headers["session"]
            self.session = self.session_header.split(";")[0]
            ssrc = re.search(r"ssrc=([0-9A-Fa-f]{8})", response.headers["transport"])
            track.ssrc = int(ssrc.group(1), 16)

    def play(self, headers=None):
        """Returns {track index: (sequence, rtptime)} of the RTP-Info header; the answer is in `answer` then"""
        response = self.request("PLAY", headers={"Range": "npt=0.000-"} if headers is None else headers)
        assert response.status == 200, response
        self.answer = response
        self.played_at = response.media_before
        info = {}
        for item in response.headers["rtp-info"].split(","):
            fields = dict(field.split("=", 1) for field in item.strip().split(";"))
            index = next(i for i, track in enumerate(self.tracks) if track.url == fields["url"])
            info[index] = (int(fields["seq"]), int(fields["rtptime"]))
        return info

    def open(self):
        """DESCRIBE, SETUP of every track and PLAY."""
        self.describe()
        self.setup_all()
        return self.play()

    def media_ports(self):
        """The client's UDP ports, known from describe() on."""
        return [media_socket.getsockname()[1] for track in self.tracks for media_socket in track.sockets]

    def video(self):
        return next(i for i, track in enumerate(self.tracks) if track.media == "video")

    def packets(self, track):
        return [packet for packet in self.rtp if packet.track == track]

    def receive(self, until, what, patience=PATIENCE):
        """Receives media until `until()` is true, for so many seconds at most."""
        end = time.monotonic() + patience
        while not until():
            self._receive_once(end, what)

    def receive_for(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self._receive_once(end, None)

    def _receive_once(self, end, what):
        media = {s: (i, rtcp) for i, t in enumerate(self.tracks) for rtcp, s in enumerate(t.sockets)}
        remaining = end - time.monotonic()
        ready = select.select([self.socket, *media], [], [], max(0, remaining))[0]
        assert ready or what is None, what
        for source in ready:
            if source is self.socket:
                data = source.recv(1 << 18)
                if not data:
                    raise ConnectionError("the server closed the connection")
                self._buffer += data
                self._cut()
            else:
                index, rtcp = media[source]
                self._media(index, rtcp, source.recv(65536))

    def _cut(self):
        while self._buffer:
            if self._buffer[:1] == b"$":
                if len(self._buffer) < 4:
                    return
                size = int.from_bytes(self._buffer[2:4], "big")
                if len(self._buffer) < 4 + size:
                    return
                self._media(self._buffer[1] // 2, self._buffer[1] % 2, self._buffer[4:4 + size])
                self._buffer = self._buffer[4 + size:]
                continue
            head, separator, rest = self._buffer.partition(b"\r\n\r\n")
            if not separator:
                return
            lines = head.decode().split("\r\n")
            headers = {name.strip().lower(): value.strip()
                       for name, value in (line.split(":", 1) for line in lines[1:])}
            size = int(headers.get("content-length", 0))
            if len(rest) < size:
                return
            status = int(lines[0].split(" ")[1])
            self._responses.append(Response(status, headers, rest[:size], len(self.rtp)))
            self._buffer = rest[size:]

    def _media(self, track, rtcp, data):
        if rtcp:
            self.rtcp.append((track, data))
            self.rtcp_after.append(len(self.rtp))
        else:
            self.rtp.append(RtpPacket.parse(track, data, self.transport == "udp"))


def udp_pair():
    for _ in range(200):
        first = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        second = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        for media_socket in (first, second):
            media_socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        try:
            first.bind(("127.0.0.1", 0))
            port = first.getsockname()[1]
            if port % 2 == 0:
                second.bind(("127.0.0.1", port + 1))
                return first, second
        except OSError:
            pass
        first.close()
        second.close()
    raise AssertionError("no free pair of UDP ports")


def assert_no_gap(packets):
    """Every sequence number is one more than the one before, as 16-bit numbers.

    Datagrams may overtake one another even on loopback when the machine is busy; a missing one is missing anyhow.
    """
    numbers = [(packet.sequence - packets[0].sequence) & 0xFFFF for packet in packets]
    if packets[0].datagram:
        numbers.sort()
    assert numbers == list(range(len(numbers)))
