"""HLS of a running ovrtspd: played by ffmpeg, and through nginx as a cache, which asks once for what many wait for."""

import concurrent.futures
import os
import pathlib
import re
import subprocess
import urllib.request

import pytest
from server import end, wait_until

CONFIG = """
port = 0
log-level = "debug"

[http]
listen = "127.0.0.1:0"

[[camera]]
id = 1

[[camera.stream]]
id = 0
width = 640
height = 360
audio = "pcmu"
"""
DOCUMENTED = pathlib.Path(__file__).parents[2] / "docs" / "http.md"
CACHE_PORT = 8580
PATH = "/api/v1/cameras/1/streams/0/hls/"


@pytest.fixture
def port(serve):
    server = serve(CONFIG)
    return server.http_port()


@pytest.fixture
def cached(port, tmp_path):
    """The address of nginx, configured as the manual says, and the list of what it asked the server for."""
    block = re.search(r"```nginx\n(.*?)```", DOCUMENTED.read_text(), re.S).group(1)
    block = block.replace("/var/cache/nginx/hls", f"{tmp_path}/cache").replace("listen 80;", f"listen 127.0.0.1:{CACHE_PORT};")
    block = block.replace("127.0.0.1:8080", f"127.0.0.1:{port}")
    paths = "".join(f"{name}_temp_path {tmp_path}/{name};\n" for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
    config = tmp_path / "nginx.conf"
    # Its workers are otherwise another user's, who may not enter this folder.
    user = "user root;\n" if os.geteuid() == 0 else ""
    config.write_text(f"""{user}daemon off;
pid {tmp_path}/nginx.pid;
error_log {tmp_path}/nginx.log;
events {{}}
http {{
log_format asked '$upstream_cache_status $request_uri';
access_log {tmp_path}/asked asked;
{paths}{block}}}
""")
    nginx = subprocess.Popen(["nginx", "-p", tmp_path, "-c", config], stderr=subprocess.DEVNULL)
    address = f"http://127.0.0.1:{CACHE_PORT}{PATH}"

    def answers():
        try:
            return b"#EXTM3U" in load(address + "live.m3u8")
        except OSError:
            return False
    wait_until(answers, 20, "nginx serves the playlist")
    yield address, tmp_path / "asked"
    end(nginx, 15)


def load(url):
    with urllib.request.urlopen(url, timeout=30) as reply:
        return reply.read()


def frames_of(url):
    done = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", url, "-t", "3", "-f", "null", "-progress", "-", "-"],
                          capture_output=True, text=True, timeout=60, check=True)
    return int(re.findall(r"frame=(\d+)", done.stdout)[-1])


def test_ffmpeg_plays_it(port):
    url = f"http://127.0.0.1:{port}{PATH}index.m3u8"
    probed = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of", "csv=p=0", url],
                            capture_output=True, text=True, timeout=60, check=True).stdout
    assert {"h264", "opus"} <= set(probed.split()), "PCMU is no codec of HLS"
    assert 74 <= frames_of(url) <= 76


def test_a_cache_asks_once_for_what_many_wait_for(cached):
    address, asked = cached
    hint = re.search(r'PRELOAD-HINT:TYPE=PART,URI="([^"]+)"', load(address + "live.m3u8").decode()).group(1)
    with concurrent.futures.ThreadPoolExecutor(20) as readers:
        parts = set(readers.map(load, [address + hint] * 20))
    assert len(parts) == 1
    assert b"moof" in parts.pop()
    wait_until(lambda: asked.read_text().count(hint) == 20, 10, "nginx wrote its log")
    statuses = [line.split()[0] for line in asked.read_text().splitlines() if line.endswith(hint)]
    assert sorted(statuses) == ["HIT"] * 19 + ["MISS"]
