"""The README's commands are run as they stand, but for the port."""

import os
import pathlib
import re
import subprocess

import pytest

README = pathlib.Path(__file__).parents[2] / "README.md"
SECONDS = "6"


def player_commands():
    rows = [line for line in README.read_text().splitlines() if line.startswith("|")]
    return [command for row in rows for command in re.findall(r"`((?:ffplay|ffprobe|ffmpeg|mpv|gst-launch-1.0|curl) [^`]+)`", row)]


def test_readme_names_a_player_of_each_kind():
    assert {command.split()[0] for command in player_commands()} >= {"ffplay", "mpv", "gst-launch-1.0", "curl"}


@pytest.mark.parametrize("command", player_commands())
def test_player_command_of_the_readme(server, command):
    # No screen and no loudspeaker here. A player plays until it is stopped, so that the time-out's 124 is good.
    environment = dict(os.environ, SDL_VIDEODRIVER="dummy", SDL_AUDIODRIVER="dummy")
    command = command.replace(":8554/", f":{server.port}/")
    command = command.replace("autovideosink", "fakesink sync=true").replace("autoaudiosink", "fakesink sync=true")
    if command.startswith("mpv "):
        command += " --vo=null --ao=null"
    run = subprocess.run(["timeout", "--signal=INT", SECONDS, "bash", "-c", "exec " + command],
                         capture_output=True, text=True, timeout=30, env=environment)
    output = run.stdout + run.stderr
    assert run.returncode in (0, 124), output
    output = output.replace("Failed to initialize a hardware accelerated renderer", "")
    assert not re.search(r"\berror\b|failed|not found", output, re.I), output
    if command.startswith("curl "):
        assert "RTSP/1.0 200 OK" in output and "DESCRIBE" in output


def test_urls_of_the_readme_are_those_of_the_server(server):
    documented = set(re.findall(r"rtsp://127\.0\.0\.1:8554(/orv/live/\d+/\d+)", README.read_text()))
    printed = set(re.findall(r"rtsp://127\.0\.0\.1:\d+(/\S+)", server.output()))
    assert documented and documented <= printed
