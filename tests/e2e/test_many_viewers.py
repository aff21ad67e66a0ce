import json
import subprocess

from server import wait_until


def load(build_folder, server, *arguments):
    run = subprocess.run(
        [build_folder / "rtsp_load", "--url", server.url(), "--server-pid", str(server.pid), "--json", *arguments],
        capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stdout + run.stderr
    return json.loads(run.stdout)


def test_hundred_viewers_lose_nothing_and_start_on_a_key_frame(build_folder, server):
    # So long that everybody is due a sender report.
    result = load(build_folder, server, "--mode", "hold", "--viewers", "100", "--transport", "both", "--all-tracks",
                  "--seconds", "6.5")
    assert result["played"] == 100
    assert result["with_faults"] == 0
    assert result["packets_lost"] == 0
    assert result["packets"] > 100 * 100


def test_sessions_one_after_the_other_leave_nothing(build_folder, server, transport):
    result = load(build_folder, server, "--mode", "cycles", "--clients", "8", "--transport", transport,
                  "--until-key-frame", "--keep-warm", "--cycles", "1000", "--seconds", "60")
    assert result["failed"] == 0 and result["unfinished"] == 0
    assert result["cycles"] >= 1000
    wait_until(lambda: server.sessions() == 0 and server.connections() == 0, 15, "nothing is left")
