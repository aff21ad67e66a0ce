import json
import subprocess

import pytest


@pytest.fixture(params=[[], ["--connected"]], ids=["one_socket", "connected"])
def canned(build_folder, server, request):
    """The URL of rtsp_canned, which sends what the server under test sends."""
    process = subprocess.Popen([build_folder / "rtsp_canned", "--from", server.url(), "--seconds", "1", *request.param],
                               stdout=subprocess.PIPE, text=True)
    yield process.stdout.readline().strip()
    process.terminate()
    assert process.wait(10) == 0


def load(build_folder, url, *arguments):
    run = subprocess.run([build_folder / "rtsp_load", "--url", url, "--json", *arguments], capture_output=True, text=True,
                         timeout=60)
    assert run.returncode == 0, run.stdout + run.stderr
    return json.loads(run.stdout)


def test_viewers_of_the_floor_lose_nothing_and_start_on_a_key_frame(build_folder, canned):
    # So short that nobody is due a sender report, which the floor does not send.
    result = load(build_folder, canned, "--mode", "hold", "--viewers", "20", "--transport", "both", "--seconds", "2")
    assert result["played"] == 20 and result["with_faults"] == 0
    assert result["packets_per_viewer_second"] > 25


def test_the_floor_answers_whole_sessions(build_folder, canned, transport):
    result = load(build_folder, canned, "--mode", "cycles", "--clients", "4", "--cycles", "200", "--transport", transport)
    assert result["cycles"] >= 200 and result["failed"] == 0
