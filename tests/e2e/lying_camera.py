"""An RTSP camera that plays over TCP, correct or with a lie in one field after the other."""

import base64
import contextlib
import dataclasses
import random
import socket
import subprocess
import threading
import time

from made_once import made_once

CLOCK_RATE = 90000
FRAME_RATE = 25
MAX_PAYLOAD = 1200
NTP_EPOCH = 2208988800  # seconds from 1900 to 1970
REPORT_SECONDS = 1.0
SEND_PATIENCE = 10.0


def film(folder):
    """The access units of two seconds of H.264, each a list of NAL units; made once for each folder."""
    def encode(path):
        subprocess.run(
            ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc=size=160x90:rate={FRAME_RATE}", "-t", "2",
             "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency", "-g", "10",
             "-x264-params", "sliced-threads=0:aud=1:repeat-headers=1", "-f", "h264", path],
            check=True)

    path = made_once(folder / "lying-camera.h264", encode)
    units = []
    for nal in path.read_bytes().replace(b"\x00\x00\x00\x01", b"\x00\x00\x01").split(b"\x00\x00\x01")[1:]:
        if nal[0] & 0x1F == 9:
            units.append([])
        else:
            units[-1].append(nal)
    return units


def payloads(nal):
    """A NAL unit as RTP payloads (RFC 6184): whole, or in FU-A fragments."""
    if len(nal) <= MAX_PAYLOAD:
        return [nal]
    parts = [nal[at:at + MAX_PAYLOAD] for at in range(1, len(nal), MAX_PAYLOAD)]
    last = len(parts) - 1
    return [bytes([nal[0] & 0xE0 | 28, nal[0] & 0x1F | (0x80 if i == 0 else 0) | (0x40 if i == last else 0)]) + part
            for i, part in enumerate(parts)]


@dataclasses.dataclass
class Packet:
    sequence: int
    timestamp: int
    ssrc: int
    marker: bool
    payload: bytes

    def to_bytes(self, first=0x80):
        return (bytes([first, 96 | (0x80 if self.marker else 0)]) + (self.sequence & 0xFFFF).to_bytes(2, "big")
                + (self.timestamp & 0xFFFFFFFF).to_bytes(4, "big") + (self.ssrc & 0xFFFFFFFF).to_bytes(4, "big")
                + self.payload)


def interleaved(channel, data, size=None):
    return b"$" + bytes([channel]) + (len(data) if size is None else size).to_bytes(2, "big") + data


def sender_report(ssrc, wall, timestamp):
    """`wall` is in seconds since 1970."""
    ntp = int((wall + NTP_EPOCH) * (1 << 32)) & 0xFFFFFFFFFFFFFFFF
    return (b"\x80\xc8\x00\x06" + ssrc.to_bytes(4, "big") + ntp.to_bytes(8, "big")
            + (timestamp & 0xFFFFFFFF).to_bytes(4, "big") + bytes(8))


class Camera:
    """Sends only correct data. Each client has a thread of its own until close()."""

    name = "true"
    transport = "tcp"

    def __init__(self, units, seed=1, host="127.0.0.1"):
        self.units = units
        self.random = random.Random(seed)
        self.asked = 0  # how often a client connected
        self.played_at = None  # wall clock at which the first frame was captured
        self.clock_error = 0.0  # seconds that its sender reports are ahead; None to send none
        self.delay = 0.0  # seconds between capture and sending
        self.drift = 0.0  # how much faster its RTP clock runs
        self.breaks_off = None  # seconds after which it closes a connection
        self.listener = socket.create_server((host, 0))
        self.url = f"rtsp://{host}:{self.listener.getsockname()[1]}/live"
        self.closing = threading.Event()
        self.threads = [threading.Thread(target=self._accept, daemon=True)]
        self.threads[0].start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.closing.set()
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for thread in self.threads:
            thread.join(timeout=SEND_PATIENCE)

    def _accept(self):
        while not self.closing.is_set():
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            self.asked += 1
            client.settimeout(SEND_PATIENCE)
            thread = threading.Thread(target=self._serve, args=(client,), daemon=True)
            self.threads.append(thread)
            thread.start()

    def _serve(self, client):
        player = None
        stop = threading.Event()
        try:
            data = b""
            while not self.closing.is_set():
                client.settimeout(0.2)
                try:
                    block = client.recv(65536)
                except TimeoutError:
                    continue
                if not block:
                    break
                data += block
                while True:
                    if data[:1] == b"$":
                        end = 4 + int.from_bytes(data[2:4], "big")
                        if len(data) < max(end, 4):
                            break
                        data = data[end:]
                        continue
                    end = data.find(b"\r\n\r\n")
                    if end < 0:
                        break
                    request, data = data[:end].decode(errors="replace"), data[end + 4:]
                    method = request.split(" ", 1)[0]
                    client.settimeout(SEND_PATIENCE)
                    self.answer(client, method, request)
                    if method == "PLAY" and player is None:
                        player = threading.Thread(target=self._play, args=(client, stop), daemon=True)
                        player.start()
        except OSError:
            pass
        finally:
            stop.set()
            with contextlib.suppress(OSError):
                client.shutdown(socket.SHUT_RDWR)
            if player is not None:
                player.join()
            client.close()

    def answer(self, client, method, request):
        cseq = next((line.split(":", 1)[1].strip() for line in request.split("\r\n")
                     if line.lower().startswith("cseq:")), "0")
        headers, body = {}, ""
        if method == "OPTIONS":
            headers["Public"] = "OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER"
        elif method == "DESCRIBE":
            headers["Content-Type"] = "application/sdp"
            headers["Content-Base"] = self.url + "/"
            body = self.description()
        elif method == "SETUP":
            if "RTP/AVP/TCP" not in request:
                client.sendall(f"RTSP/1.0 461 Unsupported Transport\r\nCSeq: {cseq}\r\n\r\n".encode())
                return
            headers["Transport"] = "RTP/AVP/TCP;unicast;interleaved=0-1"
            headers["Session"] = "1234"
        else:
            headers["Session"] = "1234"
        if body:
            headers["Content-Length"] = str(len(body))
        lines = ["RTSP/1.0 200 OK", f"CSeq: {cseq}", *(f"{name}: {value}" for name, value in headers.items())]
        client.sendall(("\r\n".join(lines) + "\r\n\r\n" + body).encode())

    def parameter_sets(self):
        return [nal for nal in self.units[0] if nal[0] & 0x1F in (7, 8)]

    def description(self):
        sets = ",".join(base64.b64encode(nal).decode() for nal in self.parameter_sets())
        return ("v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=camera\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\nm=video 0 RTP/AVP 96\r\n"
                "a=rtpmap:96 H264/90000\r\n"
                f"a=fmtp:96 packetization-mode=1;sprop-parameter-sets={sets}\r\na=control:trackID=0\r\n")

    def _play(self, client, stop):
        sequence, ssrc, first = (self.random.getrandbits(bits) for bits in (16, 32, 32))
        started = time.monotonic()
        wall = self.played_at = time.time()
        reported = None
        frame = 0
        try:
            while not stop.is_set() and not self.closing.is_set():
                captured = frame / FRAME_RATE
                due = started + captured + self.delay - time.monotonic()
                if due > 0 and stop.wait(due):
                    return
                timestamp = first + int(captured * (1 + self.drift) * CLOCK_RATE)
                if self.clock_error is not None and (reported is None or captured - reported >= REPORT_SECONDS):
                    reported = captured
                    client.sendall(self.report(ssrc, wall + captured + self.clock_error, timestamp))
                nals = self.units[frame % len(self.units)]
                cut = [payload for nal in nals for payload in payloads(nal)]
                for i, payload in enumerate(cut):
                    packet = Packet(sequence, timestamp, ssrc, i + 1 == len(cut), payload)
                    for data in self.lie(packet):
                        client.sendall(data)
                    sequence += 1
                frame += 1
                if self.breaks_off is not None and time.monotonic() - started > self.breaks_off:
                    break
        except OSError:
            pass
        finally:
            with contextlib.suppress(OSError):
                client.shutdown(socket.SHUT_RDWR)

    def report(self, ssrc, wall, timestamp):
        return interleaved(1, sender_report(ssrc, wall, timestamp))

    def lie(self, packet):
        """The bytes that a packet becomes on the TCP stream, in blocks."""
        return [interleaved(0, packet.to_bytes())]


class SequenceJumps(Camera):
    name = "sequence jumps"
    offset = 0

    def lie(self, packet):
        if self.random.random() < 0.05:
            self.offset = self.random.getrandbits(16)
        packet.sequence += self.offset
        return super().lie(packet)


class TimeJumps(Camera):
    name = "time jumps"
    offset = 0

    def lie(self, packet):
        if self.random.random() < 0.05:
            self.offset = self.random.choice([self.random.getrandbits(32), self.random.randrange(-900000, 900000)])
        packet.timestamp += self.offset
        return super().lie(packet)


class SsrcChanges(Camera):
    name = "SSRC changes"
    ssrc = 1

    def lie(self, packet):
        if self.random.random() < 0.1:
            self.ssrc = self.random.getrandbits(32)
        packet.ssrc = self.ssrc
        return super().lie(packet)


class WrongFrameLengths(Camera):
    name = "wrong lengths of interleaved frames"

    def lie(self, packet):
        data = packet.to_bytes()
        if self.random.random() < 0.02:
            return [interleaved(self.random.choice([0, 1, 2, 255]), data,
                                self.random.choice([0, 1, 11, 12, len(data) - 1, len(data) + 1, 65535]))]
        return [interleaved(0, data)]


class WrongPayloadLengths(Camera):
    name = "wrong lengths inside packets"

    def lie(self, packet):
        choice = self.random.random()
        if choice < 0.05:  # an aggregation packet whose units do not fit
            packet.payload = bytes([24]) + self.random.randbytes(self.random.randrange(0, 40))
        elif choice < 0.1:  # a fragment of nothing
            packet.payload = bytes([28, self.random.getrandbits(8)])[:self.random.randrange(1, 3)]
        elif choice < 0.15:  # contributing sources, extension and padding that are not there
            return [interleaved(0, packet.to_bytes(first=self.random.choice([0x8F, 0x90, 0xA0, 0xBF])))]
        elif choice < 0.2:
            return [interleaved(0, packet.to_bytes()[:self.random.randrange(0, 14)])]
        return [interleaved(0, packet.to_bytes())]


class TruncatedParameterSets(Camera):
    name = "truncated parameter sets"

    def parameter_sets(self):
        return [nal[:self.random.randrange(1, 6)] for nal in super().parameter_sets()]

    def lie(self, packet):
        if packet.payload[0] & 0x1F in (7, 8):
            packet.payload = packet.payload[:self.random.randrange(1, len(packet.payload))]
        return super().lie(packet)


class EndlessHeaders(Camera):
    name = "endless headers"

    def answer(self, client, method, request):
        if method != "DESCRIBE":
            super().answer(client, method, request)
            return
        client.sendall(b"RTSP/1.0 200 OK\r\n")
        while not self.closing.is_set():
            client.sendall(b"X-Header: " + b"x" * 1000 + b"\r\n")
            time.sleep(0.001)


class EndlessDescription(Camera):
    name = "endless description"

    def answer(self, client, method, request):
        if method != "DESCRIBE":
            super().answer(client, method, request)
            return
        cseq = request.lower().split("cseq:")[1].split()[0]
        client.sendall(f"RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\nContent-Type: application/sdp\r\n"
                       f"Content-Length: {self.random.choice([2000000000, 4294967297])}\r\n\r\n".encode())
        while not self.closing.is_set():
            client.sendall(b"a=x:" + b"y" * 1000 + b"\r\n")
            time.sleep(0.001)


class Rubbish(Camera):
    name = "rubbish"

    def lie(self, packet):
        if self.random.random() < 0.3:
            return [self.random.randbytes(self.random.randrange(1, 2000))]
        return [interleaved(self.random.getrandbits(8), self.random.randbytes(self.random.randrange(0, 500))),
                interleaved(0, packet.to_bytes())]


class WrongReports(Camera):
    name = "wrong sender reports"

    def lie(self, packet):
        answer = super().lie(packet)
        if self.random.random() < 0.2:
            report = sender_report(packet.ssrc, self.random.choice([0, time.time(), 4e9 * self.random.random()]),
                                   self.random.getrandbits(32))
            bye = b"\x81\xcb\x00\x01" + (packet.ssrc & 0xFFFFFFFF).to_bytes(4, "big")
            cut = self.random.randrange(0, len(report))
            answer += [interleaved(1, self.random.choice([report, report + bye, report[:cut],
                                                          self.random.randbytes(40)]))]
        return answer


LIARS = [SequenceJumps, TimeJumps, SsrcChanges, WrongFrameLengths, WrongPayloadLengths, TruncatedParameterSets,
         EndlessHeaders, EndlessDescription, Rubbish, WrongReports]


class StallingProxy:
    """Passes a camera's connections on, and holds back what the camera sends while `stall()` lasts."""

    def __init__(self, port):
        self.port = port
        self.open = threading.Event()
        self.open.set()
        self.closing = threading.Event()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"rtsp://127.0.0.1:{self.listener.getsockname()[1]}/live"
        self.threads = [threading.Thread(target=self._accept, daemon=True)]
        self.threads[0].start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.closing.set()
        self.open.set()
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for thread in self.threads:
            thread.join(timeout=SEND_PATIENCE)

    def stall(self, seconds):
        self.open.clear()
        time.sleep(seconds)
        self.open.set()

    def _accept(self):
        while not self.closing.is_set():
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            camera = socket.create_connection(("127.0.0.1", self.port))
            for source, target, held in ((client, camera, False), (camera, client, True)):
                self.threads.append(threading.Thread(target=self._pass, args=(source, target, held), daemon=True))
                self.threads[-1].start()

    def _pass(self, source, target, held):
        with contextlib.suppress(OSError):
            while not self.closing.is_set():
                source.settimeout(0.2)
                try:
                    data = source.recv(65536)
                except TimeoutError:
                    continue
                if not data:
                    break
                while held and not self.open.wait(0.2):
                    pass
                target.settimeout(SEND_PATIENCE)
                target.sendall(data)
        for end in (source, target):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
