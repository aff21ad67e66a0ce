"""Cameras that lie in every field: the server survives, and viewers of the correct ones lose nothing."""

import contextlib
import os
import signal
import threading
import time

import lying_camera
from rtsp_client import RtspClient, assert_no_gap
from server import end

# A long run by hand: OV_LIARS_SECONDS=300 python3 -m pytest -s test_lying_cameras.py
SECONDS = float(os.environ.get("OV_LIARS_SECONDS", "12"))
BREAKS_OFF = 4.0
END_SECONDS = 3.0


def config(cameras):
    text = 'port = 0\nlog-level = "debug"\n'
    for number, camera in enumerate(cameras, 1):
        text += (f'[[camera]]\nid = {number}\n[[camera.stream]]\nid = 0\nsource = "rtsp"\n'
                 f'location = "{camera.url}"\naudio = "none"\n')
    return text


class Pesterer(threading.Thread):
    """Views a stream as long as the server gives anything of it, again and again."""

    def __init__(self, url, done):
        super().__init__(daemon=True)
        self.url = url
        self.done = done
        self.packets = 0
        self.start()

    def run(self):
        while not self.done.is_set():
            with contextlib.suppress(AssertionError, OSError, LookupError, StopIteration, AttributeError):
                with RtspClient(self.url) as client:
                    client.open()
                    while not self.done.is_set():
                        client.rtp.clear()
                        client.receive(lambda: client.rtp, "media")
                        self.packets += len(client.rtp)
            self.done.wait(0.1)


def test_lying_cameras_are_retried_and_harm_no_other(serve, build_folder):
    units = lying_camera.film(build_folder)
    done = threading.Event()
    with contextlib.ExitStack() as stack:
        good = [stack.enter_context(lying_camera.Camera(units, seed)) for seed in (101, 102)]
        liars = [stack.enter_context(liar(units, seed)) for seed, liar in enumerate(lying_camera.LIARS)]
        for liar in liars:
            liar.breaks_off = BREAKS_OFF
        server = serve(config(good + liars))
        server.allow_problem(r" warning ")
        stack.callback(done.set)
        pesterers = [Pesterer(server.url(len(good) + 1 + i), done) for i in range(len(liars))]
        viewers = [stack.enter_context(RtspClient(server.url(1 + i))) for i in range(len(good))]
        for viewer in viewers:
            viewer.open()
        over = time.monotonic() + SECONDS
        while time.monotonic() < over:
            for viewer in viewers:
                seen = len(viewer.rtp)
                viewer.receive(lambda viewer=viewer, seen=seen: len(viewer.rtp) > seen, "media")
        for liar, pesterer in zip(liars, pesterers):
            print(f"{liar.name}: asked {liar.asked} times, {pesterer.packets} packets passed on")
        with open(f"/proc/{server.pid}/status", encoding="ascii") as status:
            print(*[line.strip() for line in status if line.startswith(("VmHWM", "VmRSS", "Threads"))])

        # While everybody lies on.
        code, seconds = end(server.process, signal.SIGTERM, patience=60)
        assert code == 0
        print(f"ended in {seconds:.2f} s")
        assert seconds < END_SECONDS
        assert "abandoned" not in server.log()
        for viewer in viewers:
            assert_no_gap(viewer.rtp)
            frames = sum(packet.marker for packet in viewer.rtp)
            assert frames >= (SECONDS - 2) * lying_camera.FRAME_RATE, f"{frames} frames"
        assert [liar.name for liar in liars if liar.asked < 2] == []
