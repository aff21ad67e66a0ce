"""Ten viewers lose nothing while many connections of every hostile kind do their worst, in 64 MiB of memory.

Some seconds here, of some kinds by themselves and of all at once. For a minute of each kind:

    OV_BUILD_DIR=build/dev OV_HOSTILE_SECONDS=60 OV_HOSTILE_CONNECTIONS=200 python3 -m pytest -s test_hostile_clients.py

OV_HOSTILE_FIGURES names a file to which a line of JSON is added for each run.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

import pytest

import attackers
from memory_group import MemoryGroup
from server import Server, wait_until

SECONDS = float(os.environ.get("OV_HOSTILE_SECONDS", "1.5"))
CONNECTIONS = int(os.environ.get("OV_HOSTILE_CONNECTIONS", "100"))
KINDS = attackers.KINDS if "OV_HOSTILE_SECONDS" in os.environ else ("describe", "sip", "play", "talk")
LIMIT = 64 << 20
# What a connection may hold beside what the server holds anyway (docs/security.md).
EACH = 160 << 10
CONFIG = """
port = 0
log-level = "info"
[limits]
send-buffer = 64
[talk-back]
output = "null"
[[camera]]
id = 1
talk-back = "aac"
[[camera.stream]]
id = 0
source = "file"
location = "{clip}"
"""


def anonymous_bytes(pid):
    """Memory of the process that is no file's; 0 of one that ended."""
    found = re.search(r"RssAnon:\s+(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text())
    return int(found.group(1)) * 1024 if found else 0


@pytest.fixture(scope="module")
def clip(tmp_path_factory):
    path = tmp_path_factory.mktemp("clip") / "clip.mkv"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=640x360:rate=25", "-f", "lavfi", "-i",
                    "sine=frequency=440:sample_rate=8000", "-t", "10", "-c:v", "libx264", "-preset", "ultrafast",
                    "-tune", "zerolatency", "-g", "25", "-b:v", "1M", "-pix_fmt", "yuv420p", "-c:a", "pcm_mulaw",
                    path], check=True, timeout=60)
    return path


@pytest.fixture(scope="module")
def group():
    made = MemoryGroup("ovrtspd-hostile", LIMIT)
    yield made
    made.remove()


@pytest.fixture(scope="module")
def limited(build_folder, clip, group, tmp_path_factory):
    folder = tmp_path_factory.mktemp("limited")
    server = Server(group.wrapper(folder, build_folder / "ovrtspd"), folder, CONFIG.format(clip=clip))
    server.allow_problem("refused|wrong|nobody will hear")
    yield server
    try:
        server.stop()
    finally:
        server.kill()


def start_viewers(build_folder, server, seconds):
    return subprocess.Popen(
        [build_folder / "rtsp_load", "--url", server.url(), "--json", "--mode", "hold", "--viewers", "10",
         "--transport", "both", "--all-tracks", "--seconds", str(seconds)],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def start_attack(server, kind, connections, seconds, local):
    return subprocess.Popen(
        [sys.executable, attackers.__file__, "--url", server.url(), "--kind", kind, "--connections", str(connections),
         "--seconds", str(seconds), "--local", local],
        stdout=subprocess.PIPE, text=True)


def run(build_folder, server, group, kinds, connections, record):
    """Viewers from before the attacks until after them. \\returns nothing; asserts that they lose nothing."""
    before = anonymous_bytes(server.pid)
    viewers = start_viewers(build_folder, server, SECONDS + 1.5)
    attacks = [start_attack(server, kind, connections, SECONDS, f"127.0.0.{2 + index}")
               for index, kind in enumerate(kinds)]
    peak = before
    try:
        while viewers.poll() is None:
            peak = max(peak, anonymous_bytes(server.pid)) if server.process.poll() is None else peak
            try:
                viewers.wait(0.1)
            except subprocess.TimeoutExpired:
                pass
        done = [json.loads(attack.communicate(timeout=30)[0]) for attack in attacks]
    finally:
        for process in [viewers, *attacks]:
            if process.poll() is None:
                process.kill()
            process.wait()
    result = json.loads(viewers.stdout.read())
    record({"kinds": kinds, "lost": result["packets_lost"], "packets": result["packets"],
            "faults": result["with_faults"], "before_kib": before >> 10, "peak_kib": peak >> 10,
            "group": group.figures(), "attacks": done})
    assert server.process.poll() is None, server.log()[-2000:]
    assert (result["played"], result["with_faults"], result["packets_lost"]) == (10, 0, 0), result
    assert all(attack["connects"] >= connections for attack in done), "they came at all"
    assert peak - before < len(kinds) * connections * EACH + (8 << 20)
    assert peak < LIMIT
    # What sockets hold counts apart in version 1: together it would be within the limit, too.
    assert peak + group.figures().get("tcp_peak", 0) < LIMIT


@pytest.fixture
def record(record_property):
    def note(figures):
        record_property("figures", figures)
        path = os.environ.get("OV_HOSTILE_FIGURES")
        if path:
            with open(path, "a") as file:
                file.write(json.dumps(figures) + "\n")
    return note


@pytest.mark.parametrize("kind", KINDS)
def test_viewers_lose_nothing_beside_hostile_clients(build_folder, limited, group, record, kind):
    run(build_folder, limited, group, [kind], CONNECTIONS, record)


def test_viewers_lose_nothing_beside_all_hostile_kinds_at_once(build_folder, limited, group, record):
    kinds = list(attackers.KINDS)
    run(build_folder, limited, group, kinds, max(CONNECTIONS // len(kinds), 4), record)


def test_hostile_clients_leave_nothing_behind(limited):
    """Sessions that nobody ended time out after a minute; connections are gone at once."""
    wait_until(lambda: limited.connections() == 0, 15, "connections end with their clients")
