"""Cameras behind a network that loses, reorders and repeats packets: what is recorded and watched."""

import pathlib
import re
import socket
import subprocess

import lying_camera
import pytest
from lossy_network import HERE, OTHER, LossyNetwork
from recordings import CAMERA, recording
from rtsp_client import RtspClient
from server import wait_until
from test_recording import packets

SECONDS = 6
FRAME = 1 / lying_camera.FRAME_RATE
FU_A, STAP_A = 28, 24


class UdpCamera(lying_camera.Camera):
    """Sends each packet as a datagram, and refuses TCP."""

    transport = "udp"

    def __init__(self, *arguments, host, **others):
        self.sockets = [socket.socket(socket.AF_INET, socket.SOCK_DGRAM) for _ in range(2)]
        for sender in self.sockets:
            sender.bind((host, 0))
        self.ports = None
        super().__init__(*arguments, host=host, **others)

    def close(self):
        super().close()
        for sender in self.sockets:
            sender.close()

    def answer(self, client, method, request):
        ports = re.search(r"(?i)transport:.*client_port=(\d+)-(\d+)", request)
        if method != "SETUP" or not ports:
            return super().answer(client, method, request.replace("RTP/AVP/TCP", "RTP/AVP/none"))
        self.ports = [int(port) for port in ports.groups()]
        cseq = re.search(r"(?i)cseq:\s*(\d+)", request)[1]
        own = "-".join(str(sender.getsockname()[1]) for sender in self.sockets)
        return client.sendall(f"RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\nSession: 1234\r\nTransport: RTP/AVP;unicast;"
                              f"client_port={ports[1]}-{ports[2]};server_port={own}\r\n\r\n".encode())

    def _play(self, client, stop):
        camera = self

        class Datagrams:
            """What is written to an interleaved connection, on the ports of its channels."""

            def sendall(self, data):
                camera.sockets[data[1]].sendto(data[4:], (client.getpeername()[0], camera.ports[data[1]]))

            def shutdown(self, how):
                client.shutdown(how)

        super()._play(Datagrams(), stop)


def recorded_times(folder):
    """Of the frames, on one clock."""
    times = []
    for path in sorted(pathlib.Path(folder).rglob("*.mkv")):
        begin = re.match(r"(\d{8})T(\d\d)(\d\d)(\d\d\.\d{6})Z", path.name)
        date = subprocess.run(["date", "-ud", f"{begin[1]} {begin[2]}:{begin[3]}:{begin[4]}", "+%s.%N"],
                              capture_output=True, text=True, check=True).stdout
        times += [float(date) + at for at in packets(path)[0]]
    return times


def nal_units(stream):
    return stream.replace(b"\x00\x00\x00\x01", b"\x00\x00\x01").split(b"\x00\x00\x01")[1:]


def recorded_units(folder):
    """The NAL units in the files."""
    units = []
    for path in sorted(pathlib.Path(folder).rglob("*.mkv")):
        units += nal_units(subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-c", "copy", "-bsf:v", "h264_mp4toannexb",
                                           "-f", "h264", "-"], capture_output=True, check=True).stdout)
    return units


def watched_units(rtp):
    """The NAL units in a viewer's packets, by the marks of fragments alone; those that are torn are wrong units."""
    units, part = [], b""
    for packet in rtp:
        payload = packet.payload
        kind = payload[0] & 0x1F
        if kind == FU_A:
            part = bytes([payload[0] & 0xE0 | payload[1] & 0x1F]) if payload[1] & 0x80 else part
            part += payload[2:]
            if payload[1] & 0x40:
                units.append(part)
                part = b""
            continue
        if part:
            units.append(part)
            part = b""
        if kind != STAP_A:
            units.append(payload)
            continue
        at = 1
        while at < len(payload):
            size = int.from_bytes(payload[at:at + 2], "big")
            units.append(payload[at + 2:at + 2 + size])
            at += 2 + size
    return units


def run(serve, build_folder, folder, network, kind):
    """Relays and records a camera for some seconds. Returns the camera and the viewer's packets."""
    with kind(lying_camera.film(build_folder), host=HERE) as camera:
        camera.url = camera.url.replace(HERE, OTHER)
        server = serve(recording(folder, f'source = "rtsp"\nlocation = "{camera.url}"\naudio = "none"'))
        server.allow_problem("packets were lost|packets are refused|RTP is malformed")
        wait_until(lambda: list(folder.rglob("*.mkv")), 60, "a recording")
        with RtspClient(server.url(CAMERA)) as client:
            client.open()
            client.receive_for(SECONDS)
            rtp = list(client.rtp)
        passed = network.passed
        server.stop()
    assert passed > 100, "the camera was not read over that network"
    sent = {nal for unit in camera.units for nal in unit}
    wrong = [len(unit) for unit in watched_units(rtp) if unit not in sent]
    assert wrong == [], "viewers get whole NAL units alone"
    # Zeros behind a unit belong to a start code.
    sent = {nal.rstrip(b"\0") for nal in sent}
    wrong = [len(unit) for unit in recorded_units(folder) if unit.rstrip(b"\0") not in sent]
    assert wrong == [], "recordings hold whole NAL units alone"
    return camera, rtp, server


NETWORKS = [(0, 0, 0), (1, 1, 1), (5, 5, 5), (0, 20, 20), (20, 0, 0), (20, 20, 20)]
CASES = ([(lying_camera.Camera, network) for network in ((0, 0, 0), (5, 5, 5), (20, 0, 0))]
         + [(UdpCamera, network) for network in NETWORKS])


def name(part):
    return "lost{}-reordered{}-repeated{}".format(*part) if isinstance(part, tuple) else part.transport


@pytest.mark.parametrize("kind, network", CASES, ids=name)
def test_what_comes_is_watched_and_recorded_whole(serve, build_folder, tmp_path, kind, network):
    folder = tmp_path / "recordings"
    with LossyNetwork(*network) as lossy:
        camera, rtp, server = run(serve, build_folder, folder, lossy, kind)
    times = recorded_times(folder)
    steps = [b - a for a, b in zip(times, times[1:])]
    stamps = [(b.timestamp - a.timestamp) & 0xFFFFFFFF for a, b in zip(rtp, rtp[1:])]
    assert len(times) > 5 and min(steps) > 0, "no step back"
    assert all(stamp < 1 << 31 for stamp in stamps), "no step back"
    frames = [step / FRAME for step in steps]
    if kind is lying_camera.Camera and camera.asked == 1 or network[0] == 0:
        assert all(abs(step - 1) < 0.15 for step in frames), frames
    elif camera.asked == 1:
        # What is lost over UDP leaves gaps of whole frames.
        assert all(abs(step - round(step)) < 0.15 for step in frames), frames
        assert ("packets were lost" in server.log()) or network[0] < 5
