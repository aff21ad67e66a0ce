"""Capture times of a relayed camera's frames for viewers and in recordings."""

import pathlib
import re
import threading

import lying_camera
import pytest
from rtsp_client import RtspClient
from server import wait_until
from test_recording import packets

FRAME_TICKS = lying_camera.CLOCK_RATE // lying_camera.FRAME_RATE
STALL_SECONDS = 6


def config(url, folder=None):
    text = f"""
port = 0
log-level = "debug"

[[camera]]
id = 1
name = "gate"

[[camera.stream]]
id = 0
source = "rtsp"
location = "{url}"
audio = "none"
"""
    if folder is not None:
        text += f'record = true\n\n[recording]\ndirectory = "{folder}"\nsegment = 60\n'
    return text


def test_stalled_network_shifts_no_time(serve, build_folder, tmp_path):
    folder = tmp_path / "recordings"
    with lying_camera.Camera(lying_camera.film(build_folder)) as camera:
        port = int(re.search(r":(\d+)/", camera.url).group(1))
        with lying_camera.StallingProxy(port) as proxy:
            server = serve(config(proxy.url, folder))
            server.allow_problem('camera 1/0 "gate": frozen: no frames')
            with RtspClient(server.url()) as client:
                client.open()
                client.receive_for(2)

                def stall_twice():
                    proxy.stall(STALL_SECONDS)
                    threading.Event().wait(2)
                    proxy.stall(STALL_SECONDS)

                staller = threading.Thread(target=stall_twice, daemon=True)
                staller.start()
                while staller.is_alive():
                    client.receive_for(0.5)
                client.receive_for(2)
                ends = [packet for packet in client.rtp if packet.marker]
            server.stop()
        assert camera.asked == 1
    # A viewer who takes the burst too slowly is given a later key frame, at its own time.
    steps = {(b.timestamp - a.timestamp) & 0xFFFFFFFF for a, b in zip(ends, ends[1:])}
    frames = {round(step / FRAME_TICKS) for step in steps}
    assert all(1 <= frame <= STALL_SECONDS * lying_camera.FRAME_RATE for frame in frames), sorted(steps)
    assert all(abs(step - round(step / FRAME_TICKS) * FRAME_TICKS) <= 2 for step in steps), sorted(steps)
    times = []
    for path in sorted(pathlib.Path(folder).rglob("*.mkv")):
        times += packets(path)[0]
    assert len(times) > 16 * lying_camera.FRAME_RATE
    wrong = [(a, b) for a, b in zip(times, times[1:]) if not 0.035 <= b - a <= 0.045]
    assert wrong == []


def capture_times(client):
    """By the last sender report: the wall clock of every packet's capture."""
    report = [data for _, data in client.rtcp if data[1] == 200][-1]
    wall = int.from_bytes(report[8:16], "big") / (1 << 32) - lying_camera.NTP_EPOCH
    stamp = int.from_bytes(report[16:20], "big")
    return [(packet, wall + (((packet.timestamp - stamp + (1 << 31)) & 0xFFFFFFFF) - (1 << 31)) / lying_camera.CLOCK_RATE)
            for packet in client.rtp]


def capture_errors(server, camera, seconds=8):
    """By how much the capture times that the server reports for the last frames are too late."""
    with RtspClient(server.url()) as client:
        client.open()
        client.receive_for(seconds)
        # Parameter sets stand in many frames: they name none.
        numbers = {}
        for number, unit in enumerate(camera.units):
            for nal in unit:
                numbers[nal[:60]] = None if nal[:60] in numbers else number
        errors = []
        loop = len(camera.units) / lying_camera.FRAME_RATE
        for packet, wall in capture_times(client)[-40:]:
            number = numbers.get(packet.payload[:60])
            if number is not None:
                error = (wall - camera.played_at - number / lying_camera.FRAME_RATE) % loop
                errors.append(error - loop if error > loop / 2 else error)
    assert len(errors) > 10
    return errors


def test_time_of_the_cameras_reports_is_passed_on(serve, build_folder):
    with lying_camera.Camera(lying_camera.film(build_folder)) as camera:
        camera.delay = 0.5
        server = serve(config(camera.url))
        errors = capture_errors(server, camera)
        server.stop()
        print(f"errors of {min(errors) * 1000:.3f} to {max(errors) * 1000:.3f} ms")
        assert max(abs(error) for error in errors) < 0.002


@pytest.mark.parametrize("clock_error, seconds", [(3600, 8), (None, 22)])
def test_camera_without_a_right_clock_is_dated_by_arrival(serve, build_folder, clock_error, seconds):
    with lying_camera.Camera(lying_camera.film(build_folder)) as camera:
        camera.delay = 0.5
        camera.clock_error = clock_error
        server = serve(config(camera.url))
        server.allow_problem("dated by their arrival")
        errors = capture_errors(server, camera, seconds)
        wait_until(lambda: "dated by their arrival" in server.log(), 30, "a warning")
        server.stop()
        assert all(0.49 < error < 0.6 for error in errors), (min(errors), max(errors))
        lines = [line for line in server.log().splitlines() if "dated by their arrival" in line]
        assert len(lines) == 1 and "camera 1/0 \"gate\"" in lines[0]
