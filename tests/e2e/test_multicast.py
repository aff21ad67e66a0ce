import contextlib
import itertools
import pathlib
import re
import select
import socket
import struct
import subprocess
import time

import pytest

import ffmpeg
import gstreamer
from network import CLIENT_INTERFACE, SERVER_ADDRESS, OtherMachine, groups_at_loopback
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until
from wire import Capture

CONFIG = """
port = 0
log-level = "debug"
segmentation-offload = false
linger = 1
listen = "{listen}"

[limits]
session-timeout = {timeout}
orphan-timeout = 1

[[camera]]
id = 1
[[camera.stream]]
id = 0
width = 640
height = 360
bit-rate = 500
gop = 10
[[camera.stream]]
id = 1
width = 160
height = 120
frame-rate = 100
bit-rate = 100
multicast = "239.255.99.1:6000"
"""
FAMILY = "orv/multicast"
GROUP = "239.255.42.0"
PORTS = [5004, 5005, 5006, 5007]
FIXED_GROUP = "239.255.99.1"


@pytest.fixture
def other_machine():
    machine = OtherMachine()
    yield machine
    machine.close()


def serve_cable(serve, extra="", timeout=60, listen=SERVER_ADDRESS):
    """A server that is reached over the cable."""
    instance = serve(extra + CONFIG.format(listen=listen, timeout=timeout))
    instance.allow_problem("anybody who reaches")
    return instance


@pytest.fixture
def server(serve, other_machine):
    return serve_cable(serve)


class Viewer(RtspClient):
    """Joins the groups that the server names."""

    def __init__(self, server, machine=None, stream=0):
        self.inside = machine.inside if machine else contextlib.nullcontext
        with self.inside():
            super().__init__(server.url(1, stream, family=FAMILY))

    def setup_all(self):
        self.transport = "udp"
        for track in self.tracks:
            response = self.request("SETUP", track.url, {"Transport": "RTP/AVP;multicast"})
            assert response.status == 200, response
            self.session_header = response.headers["session"]
            self.session = self.session_header.split(";")[0]
            transport = dict(field.partition("=")[::2] for field in response.headers["transport"].split(";"))
            track.ssrc = int(transport["ssrc"], 16)
            track.ports = [int(port) for port in transport["port"].split("-")]
            self.source = transport["source"]
            self.destination = transport["destination"]
            self.ttl = int(transport["ttl"])
            with self.inside():
                track.sockets = tuple(member(self.destination, port) for port in track.ports)


def member(group, port):
    joined = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    joined.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    joined.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
    joined.bind((group, port))
    joined.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, struct.pack("4sL", socket.inet_aton(group), 0))
    return joined


def video_packets(viewer):
    return viewer.packets(viewer.video())


def numbers(values):
    return [int(value, 0) for value in values]


def captured(capture):
    """(time, SSRC, sequence number, TTL, destination) of each RTP packet on the wire"""
    fields = ("frame.time_epoch", "rtp.ssrc", "rtp.seq", "ip.ttl", "ip.dst")
    return [(float(frame["frame.time_epoch"][0]), *numbers(frame["rtp.ssrc"] + frame["rtp.seq"] + frame["ip.ttl"]),
             frame["ip.dst"][0]) for frame in capture.dissect("rtp", *fields)]


def test_packets_come_from_the_announced_address_and_ports(server, other_machine):
    with Viewer(server, other_machine) as viewer:
        viewer.open()
        assert viewer.source == SERVER_ADDRESS
        for track in viewer.tracks:
            for joined, port in zip(track.sockets, track.ports):
                joined.settimeout(15)
                assert joined.recvfrom(65536)[1] == (SERVER_ADDRESS, port)


def test_ffmpeg_and_rtspsrc_play_across_a_cable(server, other_machine, tmp_path):
    url = server.url(family=FAMILY)
    streams = ffmpeg.decode(url, "udp_multicast", ("-frames:v", "50"), ("0:v",), prefix=other_machine.prefix)
    assert len(streams) == 50
    stream, times = gstreamer.record(
        url, "udp-mcast", tmp_path / "frames.mkv", "video",
        ["rtph264depay", "!", "avdec_h264", "!", "identity", "eos-after=51", "!", "jpegenc"],
        prefix=other_machine.prefix)
    assert (stream["width"], stream["height"]) == (640, 360)
    assert len(times) == 50
    # rtspsrc dates the first frame before it knows how late frames arrive.
    assert all(0.03 < b - a < 0.05 for a, b in zip(times[1:], times[2:])), times
    wait_until(lambda: server.sessions() == 0, 5, "the players' sessions are gone")


def test_ffmpeg_and_rtspsrc_play_on_the_same_machine(serve, tmp_path):
    with groups_at_loopback():
        server = serve(CONFIG.format(listen="127.0.0.1", timeout=60))
        url = server.url(family=FAMILY)
        assert len(ffmpeg.decode(url, "udp_multicast", ("-frames:v", "50"), ("0:v",))) == 50
        _, times = gstreamer.record(url, "udp-mcast", tmp_path / "audio.mkv", "audio",
                                    ["rtppcmudepay", "!", "mulawdec", "!", "identity", "eos-after=51"])
        assert len(times) == 50
        server.stop()


def test_a_machine_reaches_its_own_groups_on_a_network(server, other_machine):
    """What leaves over the cable comes back to members on the server's machine too."""
    with Viewer(server, other_machine) as there:
        there.open()
        with member_here() as here:
            there.receive(lambda: len(video_packets(there)) > 50, "video across the cable")
            here.settimeout(5)
            assert len(here.recv(2000)) > 12


@contextlib.contextmanager
def member_here(group=GROUP, port=PORTS[0]):
    joined = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    joined.bind((group, port))
    joined.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                      socket.inet_aton(group) + socket.inet_aton(SERVER_ADDRESS))
    with joined:
        yield joined


def test_five_viewers_share_one_stream_of_packets(server, other_machine, tmp_path):
    with contextlib.ExitStack() as stack:
        viewers = []
        with Capture(tmp_path, server.port, PORTS, CLIENT_INTERFACE, other_machine.prefix) as capture:
            for _ in range(5):
                viewer = stack.enter_context(Viewer(server, other_machine))
                viewers.append(viewer)
                viewer.open()
                assert (viewer.destination, viewer.ttl) == (GROUP, 1)
                viewer.receive(lambda: len(video_packets(viewer)) > 20, "video")
            for viewer in viewers:
                seen = len(viewer.rtp)
                viewer.receive(lambda: len(viewer.rtp) > seen + 20, "media, whoever has left")
                assert viewer.request("TEARDOWN").status == 200
                end = time.time()
            wait_until(lambda: server.sessions() == 0, 5, "all have left")
    packets = captured(capture)
    assert len(packets) > 200
    assert len({packet[1:3] for packet in packets}) == len(packets), "each packet is on the wire once"
    assert {packet[1] for packet in packets} == {track.ssrc for track in viewers[0].tracks}, "one SSRC for each track"
    assert {packet[3:] for packet in packets} == {(1, GROUP)}
    assert packets[-1][0] < end + 0.05, "nothing is sent after the last TEARDOWN"
    for viewer in viewers:
        assert {track.ssrc for track in viewer.tracks} == {track.ssrc for track in viewers[0].tracks}
        for index in range(len(viewer.tracks)):
            assert_no_gap(viewer.packets(index))
    first = {viewer.rtp[0].sequence for viewer in viewers}
    assert len(first) == 5, "they came one after the other"
    kinds = [kind for frame in capture.dissect("rtcp", "rtcp.pt") for kind in numbers(frame["rtcp.pt"])]
    assert kinds.count(200) >= 2 and kinds.count(203) == 2, "reports go to the group, and a BYE for each track"
    assert capture.dissect("_ws.malformed && (rtp || rtcp || rtsp)", "frame.number") == []


def test_first_packet_is_that_of_rtp_info(server, other_machine):
    with Viewer(server, other_machine) as viewer:
        info = viewer.open()
        viewer.receive(lambda: all(viewer.packets(i) for i in info), "both tracks")
        for index, announced in info.items():
            packet = viewer.packets(index)[0]
            assert (packet.sequence, packet.timestamp) == announced
        assert video_packets(viewer)[0].nal_types()[0] in (7, 8, 5), "it starts with a key frame"


def test_five_viewers_leave_in_every_order(server, other_machine):
    streams = {}
    with member_here(FIXED_GROUP, 6000) as everything:
        everything.settimeout(5)
        with contextlib.ExitStack() as stack:
            viewers = [stack.enter_context(Viewer(server, other_machine, stream=1)) for _ in range(5)]
            for viewer in viewers:
                viewer.describe()
            for order in itertools.permutations(viewers):
                for viewer in viewers:
                    watch_frames(viewer)
                for viewer in order:
                    collect(everything, streams)
                    assert viewer.request("TEARDOWN").status == 200
                    viewer.session = None
        wait_until(lambda: server.sessions() == 0, 5, "all have left")
    assert len(streams) == 120, "each iteration has a stream of its own"
    for sequence in streams.values():
        assert len(sequence) >= 5
        # Datagrams may overtake one another on a busy machine.
        ordered = sorted((number - sequence[0] + 0x8000) & 0xFFFF for number in sequence)
        assert ordered == list(range(ordered[0], ordered[0] + len(ordered))), "nobody's leaving makes a gap"


def watch_frames(viewer):
    """Without a socket that would take them."""
    response = viewer.request("SETUP", viewer.tracks[0].url, {"Transport": "RTP/AVP;multicast"})
    assert response.status == 200, response
    viewer.session = response.headers["session"].split(";")[0]
    viewer.play()


def collect(joined, streams):
    """Sequence numbers by SSRC, of what waits and of one packet that comes after it."""
    waiting = True
    while waiting:
        waiting = select.select([joined], [], [], 0)[0]
        data = joined.recv(2000)
        streams.setdefault(data[8:12], []).append(int.from_bytes(data[2:4], "big"))


def test_the_death_of_the_last_viewer_frees_the_group(server, other_machine, tmp_path):
    players = [subprocess.Popen(
        [*other_machine.prefix, "ffmpeg", "-nostdin", "-v", "quiet", "-rtsp_transport", "udp_multicast",
         "-i", server.url(family=FAMILY), "-f", "null", "-"]) for _ in range(2)]
    try:
        wait_until(lambda: server.connections() == 2, 15, "both players are connected")
        with member_here() as here:
            here.settimeout(5)
            assert here.recv(2000)
            players.pop().kill()
            wait_until(lambda: server.sessions() == 1, 10, "the first has left")
            assert here.recv(2000)
            players.pop().kill()
            wait_until(lambda: server.sessions() == 0, 10, "the last has left")
            wait_until(lambda: GROUP not in memberships(), 5, "the group is left")
            while select.select([here], [], [], 0)[0]:
                here.recv(2000)
            assert not select.select([here], [], [], 0.5)[0], "nothing is sent any more"
    finally:
        for player in players:
            player.kill()


def memberships():
    """The groups that this machine is in, but for the one of the test's own socket."""
    run = subprocess.run(["ip", "-4", "-j", "maddress", "show", "dev", "ovm0"], capture_output=True, text=True,
                         check=True)
    users = dict(re.findall(r'"address":"([0-9.]+)"(?:,"users":(\d+))?', run.stdout))
    return [group for group, count in users.items() if group != GROUP or int(count or 1) > 1]


def test_a_machine_that_vanishes_leaves_within_its_time_out(serve, other_machine):
    server = serve_cable(serve, timeout=4)
    with Viewer(server, other_machine) as viewer:
        viewer.open()
        viewer.receive(lambda: len(video_packets(viewer)) > 20, "video")
        other_machine.pull_the_cable()
        wait_until(lambda: server.sessions() == 0, 10, "the session timed out")
    assert "timed out" in server.log()


def test_a_stream_has_its_configured_group(server, other_machine):
    with Viewer(server, other_machine, stream=1) as viewer:
        description = viewer.describe()
        assert f"c=IN IP4 {FIXED_GROUP}/1\r\n" in description
        assert "m=video 6000 RTP/AVP" in description
        viewer.setup_all()
        viewer.play()
        viewer.receive(lambda: len(video_packets(viewer)) > 20, "video")
        assert viewer.destination == FIXED_GROUP


def test_the_interface_can_be_named(serve, other_machine):
    """Without a route for groups, which the server's own machine does not have."""
    server = serve_cable(serve, "multicast.interface = \"ovm0\"\n", listen="0.0.0.0")
    with Viewer(server, other_machine) as viewer:
        viewer.open()
        viewer.receive(lambda: len(video_packets(viewer)) > 20, "video")


def test_setup_without_a_multicast_route_is_refused(serve, other_machine):
    server = serve_cable(serve, listen="0.0.0.0")
    server.allow_problem("multicast: no route to 239.255.42.0: No such device")
    with Viewer(server, other_machine) as viewer:
        viewer.describe()
        response = viewer.request("SETUP", viewer.tracks[0].url, {"Transport": "RTP/AVP;multicast"})
        assert response.status == 503
    wait_until(lambda: server.sessions() == 0, 5, "nothing is left")


def test_the_server_works_no_more_for_five_viewers_than_for_one(server, other_machine):
    """Prints what it measured, for each frame. Five senders would send five times as much; five encoders would take
    five times the processor's time, whose bound leaves room for what else runs on the machine."""
    cost = {}
    with contextlib.ExitStack() as stack:
        viewers = []
        for count in (1, 5):
            while len(viewers) < count:
                viewers.append(stack.enter_context(Viewer(server, other_machine)))
                viewers[-1].open()
            viewers[-1].receive(lambda: len(video_packets(viewers[-1])) > 20, "video")
            viewers[0].receive_for(0.1)
            cost[count] = cost_of_a_frame(server, viewers[0])
    for count, (datagrams, milliseconds) in cost.items():
        print(f"{count} viewers: {datagrams:.2f} datagrams and {milliseconds:.2f} ms of processor time a frame")
    assert cost[5][0] < cost[1][0] * 1.5
    assert cost[5][1] < cost[1][1] * 2


def cost_of_a_frame(server, viewer, frames=75):
    """Datagrams that the server's machine sent, and milliseconds that the server worked."""
    def started():
        return len({packet.timestamp for packet in video_packets(viewer)})

    first = started()
    before = datagrams_sent(server.pid), cpu_seconds(server.pid)
    viewer.receive(lambda: started() >= first + frames, "frames", patience=30)
    return ((datagrams_sent(server.pid) - before[0]) / frames,
            (cpu_seconds(server.pid) - before[1]) * 1000 / frames)


def datagrams_sent(pid):
    names, values = (line.split() for line in pathlib.Path(f"/proc/{pid}/net/snmp").read_text().splitlines()
                     if line.startswith("Udp:"))
    return int(values[names.index("OutDatagrams")])


def cpu_seconds(pid):
    """Of all threads that live, as precisely as the scheduler counts."""
    return sum(int(path.read_text().split()[0])
               for path in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat")) / 1e9


def test_one_encoder_serves_both_controllers_and_the_group(serve, other_machine):
    server = serve_cable(serve, 'live-controller = "both"\n')
    with RtspClient(server.url()) as first, RtspClient(server.url(family="second/orv/live")) as second, \
            Viewer(server, other_machine) as third:
        for client in (first, second, third):
            info = client.open()
            client.receive(lambda: len(video_packets(client)) > 60, "video")
            index = client.video()
            assert (client.packets(index)[0].sequence, client.packets(index)[0].timestamp) == info[index]
        assert server.log().count("camera 1/0: starting") == 1, "one pipeline"
        for client in (first, second):
            client.receive(lambda: frame_ends(client) & frame_ends(third),
                           "the same encoder's frames over either transport")


def frame_ends(client):
    return {packet.payload for packet in video_packets(client) if packet.marker}
