import ffmpeg


def test_camera_that_is_another_cameras_url(serve, transport):
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
