import pytest

from rtsp_client import RtspClient
from wire import Capture

CONFIG = """
port = 0
log-level = "debug"
linger = 60  # longer than tshark takes to start
segmentation-offload = false
"""


@pytest.fixture
def session(serve, tmp_path, transport):
    """A whole session until a track has reported again, captured; (capture, client, RTP-Info).

    Somebody else watches already, so that the session starts at once with a key frame that is there.
    """
    server = serve(CONFIG)
    with RtspClient(server.url(), transport) as viewer, RtspClient(server.url(), transport) as client:
        viewer.open()
        viewer.receive(lambda: len(viewer.packets(viewer.video())) > 100, "video")
        assert viewer.request("PAUSE").status == 200
        client.describe()
        with Capture(tmp_path, server.port, client.media_ports()) as capture:
            client.setup_all()
            info = client.play()
            client.receive(lambda: len(client.rtcp) > len(client.tracks), "a second report", patience=20)
            assert client.request("TEARDOWN").status == 200
            client.receive_for(0.5)
        yield capture, client, info


def numbers(values, base=10):
    return [int(value, 0) if value.startswith("0x") else int(value, base) for value in values]


def test_session_on_the_wire(session, transport):
    capture, client, info = session
    check_rtp(capture, client, info)
    check_sender_reports(capture, client)
    assert capture.dissect("_ws.malformed && (rtp || rtcp || rtsp)", "frame.number") == []


def check_rtp(capture, client, info):
    packets = {track.ssrc: [] for track in client.tracks}
    for frame in capture.dissect("rtp", "rtp.ssrc", "rtp.seq", "rtp.timestamp", "frame.number"):
        for ssrc, sequence, timestamp in zip(*(numbers(frame[f"rtp.{name}"]) for name in ("ssrc", "seq", "timestamp"))):
            assert ssrc in packets, "every SSRC is one of a SETUP response"
            packets[ssrc].append((sequence, timestamp))
    for index, track in enumerate(client.tracks):
        sent = packets[track.ssrc]
        assert len(sent) > 100
        assert sent[0] == info[index], "the first packet is the one that RTP-Info names"
        assert all((b[0] - a[0]) & 0xFFFF == 1 for a, b in zip(sent, sent[1:])), "no sequence number is missing"
        assert all((b[1] - a[1]) & 0xFFFFFFFF < 1 << 31 for a, b in zip(sent, sent[1:])), "timestamps do not go back"
    answer = capture.dissect('rtsp.response && rtsp contains "RTP-Info"', "frame.number")
    first = capture.dissect("rtp", "frame.number")[0]
    assert len(answer) == 1
    assert int(answer[0]["frame.number"][0]) <= int(first["frame.number"][0]), "the answer to PLAY goes first"


def check_sender_reports(capture, client):
    reports, names, byes = {}, set(), set()
    fields = ("rtcp.pt", "rtcp.senderssrc", "rtcp.sender.packetcount", "rtcp.sdes.text", "rtcp.length_check")
    for frame in capture.dissect("rtcp", *fields):
        assert set(frame.get("rtcp.length_check", ["1"])) <= {"1", "True"}
        names.update(frame["rtcp.sdes.text"])
        # Over TCP one frame may hold the reports of both tracks.
        compounds = split_at_reports(numbers(frame["rtcp.pt"]))
        ssrcs, counts = numbers(frame["rtcp.senderssrc"]), numbers(frame["rtcp.sender.packetcount"])
        assert len(compounds) == len(ssrcs) == len(counts)
        for kinds, ssrc, count in zip(compounds, ssrcs, counts):
            assert kinds in ([200, 202], [200, 202, 203]), "a report, who it is of, and at the end a BYE"
            reports.setdefault(ssrc, []).append(count)
            if 203 in kinds:
                byes.add(ssrc)
    for track in client.tracks:
        counts = reports[track.ssrc]
        assert len(counts) >= 2, "reports come at once and every five seconds"
        assert counts == sorted(counts) and counts[-1] > counts[0]
    assert len(names) == 1, "one CNAME for all tracks of a session"
    assert byes == {track.ssrc for track in client.tracks}


def split_at_reports(kinds):
    """Packet types of several compound packets, one list each: every one starts with a report."""
    assert kinds[0] in (200, 201), "a compound packet starts with a report"
    starts = [i for i, kind in enumerate(kinds) if kind in (200, 201)]
    return [kinds[a:b] for a, b in zip(starts, [*starts[1:], len(kinds)])]
