"""Relayed cameras with B-frames: RTP gives presentation times alone, and recordings keep every frame and its time."""

import pytest
from test_b_frames import CODERS, films, judge, record  # noqa: F401 (films is a fixture)


# H.264 with open GOPs has one IDR frame alone, and viewers of a live stream start with those.
@pytest.mark.parametrize("coder", [coder for coder in CODERS if coder != "h264-open"])
def test_a_relayed_camera_is_recorded_frame_by_frame(serve, build_folder, tmp_path, films, coder):
    camera = serve(f"""
port = 0
[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "file"
location = "{films[coder]}"
audio = "none"
video = "{coder[:4]}"
""")
    server = record(serve, tmp_path, f'source = "rtsp"\nlocation = "{camera.url()}"\naudio = "none"\n'
                    f'video = "{coder[:4]}"')
    judge(server, build_folder, tmp_path / "recordings", leads="open" in coder)
