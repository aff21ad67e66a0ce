import ffmpeg
import pytest
from reload import is_bye
from rtsp_client import RtspClient
from server import DEFAULT_CONFIG


def test_camera_that_relays_another_ones_url(serve, transport):
    origin = serve()
    relay = serve(f"""
port = 0
log-level = "debug"

[[camera]]
id = 2

[[camera.stream]]
id = 0
source = "rtsp"
location = "{origin.url()}"
""")
    streams = ffmpeg.probe(relay.url(2), transport)
    assert streams["video"]["codec_name"] == "h264"
    assert (streams["video"]["width"], streams["video"]["height"]) == (1280, 720)
    assert streams["audio"]["codec_name"] == "pcm_mulaw"
    frames = ffmpeg.decode(relay.url(2), transport, limits=("-t", "3"), maps=("0:v",))
    assert 70 <= len(frames) <= 80
    assert all(a.pts < b.pts for a, b in zip(frames, frames[1:]))


@pytest.mark.parametrize("written", ["p%40ss%3Fw%23rd%2F1", "p@ss?w#rd/1"])
def test_camera_that_requires_a_password(serve, written):
    origin = serve(DEFAULT_CONFIG + """
[[user]]
name = "viewer"
password = "p@ss?w#rd/1"
""")
    origin.allow_problem("401|authenti|password|credential")
    location = origin.url(credentials=f"viewer:{written}")
    relay = serve(f"""
port = 0

[[camera]]
id = 2

[[camera.stream]]
id = 0
source = "rtsp"
location = "{location}"
""")
    relay.allow_problem("password|percent|%23 for #")
    assert len(ffmpeg.decode(relay.url(2), "tcp", limits=("-frames:v", "10"), maps=("0:v",))) == 10
    assert "w#rd" not in relay.log() + origin.log()
    relay.stop()


def test_viewers_of_a_camera_that_goes_wait_or_end_as_configured(serve):
    origin = serve()
    camera = """
[[camera]]
id = {}
away = "{}"

[[camera.stream]]
id = 0
source = "rtsp"
location = "{}"
"""
    relay = serve("port = 0\n" + camera.format(2, "wait", origin.url()) + camera.format(3, "end", origin.url()))
    relay.allow_problem("unreachable|frozen|failed")
    with RtspClient(relay.url(2)) as waits, RtspClient(relay.url(3)) as ends:
        for client in (waits, ends):
            client.open()
            client.receive(lambda client=client: len(client.rtp) > 5, "media")
        origin.stop()
        ends.receive(lambda: {track for track, data in ends.rtcp if is_bye(data)} == set(range(len(ends.tracks))),
                     "BYE on each track")
        assert ends.request("GET_PARAMETER").status == 454
        assert ends.request("DESCRIBE", headers={"Session": ""}).status != 200
        assert waits.request("GET_PARAMETER").status == 200
        assert not any(is_bye(data) for _, data in waits.rtcp)
    assert "its camera is away" in relay.log()
