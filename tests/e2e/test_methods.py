import time

from processor import Stopwatch
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until


def test_rtp_info_names_the_first_packet_which_starts_a_key_frame(server, transport):
    with RtspClient(server.url(), transport) as client:
        info = client.open()
        assert sorted(info) == list(range(len(client.tracks))), "RTP-Info names every track"
        client.receive(lambda: all(len(client.packets(track)) > 30 for track in info), "both tracks")
        assert client.played_at == 0, "the answer goes before the first packet"
        for track, (sequence, timestamp) in info.items():
            packets = client.packets(track)
            assert (packets[0].sequence, packets[0].timestamp) == (sequence, timestamp)
            assert {packet.ssrc for packet in packets} == {client.tracks[track].ssrc}
            assert_no_gap(packets)
        slices = [kind for packet in client.packets(client.video()) for kind in packet.nal_types() if kind <= 5]
        assert slices[0] == 5
        assert client.request("TEARDOWN").status == 200


def test_sessions_have_ssrcs_of_their_own(server):
    with RtspClient(server.url()) as first, RtspClient(server.url()) as second:
        for client in (first, second):
            client.open()
        ssrcs = {track.ssrc for client in (first, second) for track in client.tracks}
        assert len(ssrcs) == 4
        assert first.session != second.session


def test_pause_and_play_leave_no_gap(server, transport):
    with RtspClient(server.url(), transport) as client:
        client.open()
        client.receive(lambda: len(client.packets(client.video())) > 60, "video")
        assert client.request("PAUSE").status == 200
        client.receive_for(0.2)
        before = len(client.rtp)
        client.receive_for(1.0)
        assert len(client.rtp) == before, "nothing is sent while paused"

        info = client.play()
        if transport == "tcp":
            assert client.played_at == before, "the answer goes before the first packet"
        resumed = {track: len(client.packets(track)) for track in info}
        client.receive(lambda: all(len(client.packets(track)) > resumed[track] + 30 for track in info), "both tracks")
        for track, (sequence, timestamp) in info.items():
            packets = client.packets(track)
            first = next(packet for packet in packets if packet.sequence == sequence)
            assert first.timestamp == timestamp
            assert packets.index(first) >= 1
            assert_no_gap(packets)
            assert {packet.ssrc for packet in packets} == {client.tracks[track].ssrc}
        video = client.packets(client.video())
        again = next(i for i, packet in enumerate(video) if packet.sequence == info[client.video()][0])
        slices = [kind for packet in video[again:] for kind in packet.nal_types() if kind <= 5]
        assert slices[0] == 5, "it goes on with a key frame"
        assert client.request("TEARDOWN").status == 200


def test_teardown_leaves_no_session(server, transport):
    with RtspClient(server.url(), transport) as client:
        client.open()
        client.receive(lambda: len(client.rtp) > 20, "media")
        session = client.session
        assert client.request("TEARDOWN").status == 200
        client.receive_for(0.2)
        count = len(client.rtp)
        client.receive_for(0.5)
        assert len(client.rtp) == count, "nothing is sent after TEARDOWN"
        client.session = None
        assert client.request("PLAY", headers={"Session": session}).status == 454
        assert client.request("OPTIONS").status == 200, "the connection lives on"
    wait_until(lambda: server.connections() == 0, 5, "the server closes the connection")


def test_sender_reports_come_with_the_first_packets(server, transport):
    with RtspClient(server.url(), transport) as client:
        started = time.monotonic()
        client.open()
        client.receive(lambda: {track for track, _ in client.rtcp} == {0, 1}, "a report of each track")
        assert time.monotonic() - started < 2
        for track, data in client.rtcp:
            assert data[0] >> 6 == 2 and data[1] == 200
            assert int.from_bytes(data[4:8], "big") == client.tracks[track].ssrc


def test_keep_alive_with_get_parameter(server):
    with RtspClient(server.url()) as client:
        client.open()
        assert client.request("GET_PARAMETER").status == 200
        assert client.request("SET_PARAMETER").status == 200
        assert "timeout=60" in client.session_header


def test_path_of_play_may_end_with_a_slash_and_a_query_is_ignored(server):
    with RtspClient(server.url() + "?user=x&channel=1") as client:
        client.open()
        client.receive(lambda: len(client.rtp) > 5, "media")


def test_stalled_reader_slows_no_other(server):
    with RtspClient(server.url(), "tcp") as stalled, RtspClient(server.url(), "tcp") as viewer:
        stalled.open()
        viewer.open()
        stopwatch = Stopwatch(server.pid)
        viewer.receive_for(6)
        seconds = stopwatch.read()
        video = viewer.packets(viewer.video())
        assert_no_gap(video)
        frames = len({packet.timestamp for packet in video})
        assert frames >= 25 * (seconds - 1)
        # The stalled one reads on: whole frames are missing, but no sequence number is.
        stalled.receive_for(2)
        assert_no_gap(stalled.packets(stalled.video()))
