"""What measurements of many cameras share: rtsp_origin that plays them, its film, options, and what processes use."""

import contextlib
import datetime
import json
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import time


def wait_until(condition, seconds, what):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.05)


class Use:
    """What processes have used so far: CPU seconds and context switches of all threads, memory now."""

    def __init__(self, processes):
        self.wall = time.monotonic()
        self.cpu = self.switches = self.resident = self.threads = 0
        for process in processes:
            folder = pathlib.Path(f"/proc/{process.pid}")
            for thread in (folder / "task").iterdir():
                try:
                    self.cpu += int((thread / "schedstat").read_text().split()[0]) / 1e9
                    status = (thread / "status").read_text()
                except (FileNotFoundError, ProcessLookupError):
                    continue  # it ended just now
                self.threads += 1
                self.switches += sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", status)))
            self.resident += int(re.search(r"VmRSS:\s+(\d+)", (folder / "status").read_text()).group(1)) * 1024


class Origin:
    def __init__(self, arguments, folder, cameras):
        self.process = subprocess.Popen(
            [arguments.build / "rtsp_origin", "--video", arguments.video, "--cameras", str(cameras), "--audio",
             arguments.audio, "--threads", str(arguments.origin_threads)], stdout=subprocess.PIPE, text=True)
        self.port = int(re.search(r":(\d+)/", self.process.stdout.readline()).group(1))

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        out, _ = self.process.communicate(timeout=30)
        return json.loads(out)

    def kill(self):
        """Ends it where end() did not."""
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


def end_all(processes):
    """Returns the seconds that it took, and how many did not end by themselves."""
    start = time.monotonic()
    killed = 0
    for process in processes:
        process.send_signal(signal.SIGTERM)
    for process in processes:
        try:
            process.wait(30)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            killed += 1
    return time.monotonic() - start, killed


def make_video(path):
    """Ten seconds, encoded once, so that every camera sends the same bits and none spends time on an encoder."""
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "testsrc2=size=640x360:rate=25,noise=alls=12:allf=t", "-t", "10", "-c:v", "libx264", "-preset",
                    "veryfast", "-profile:v", "main", "-bf", "0", "-g", "50", "-keyint_min", "50", "-sc_threshold", "0",
                    "-b:v", "1M", "-maxrate", "1M", "-bufsize", "500k", "-pix_fmt", "yuv420p", path], check=True)


def add_arguments(parser, measured, warm_up):
    """The options of all of them. `measured` says what --seconds is for, `warm_up` what --warm-up starts after."""
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--cameras", default="1,16,64", help="numbers of cameras, one after the other")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=20, help=measured)
    parser.add_argument("--warm-up", type=float, default=5, help=f"seconds between {warm_up} and that")
    parser.add_argument("--source", default="rtsp", help="ovrtspd's key `source`")
    parser.add_argument("--video", type=pathlib.Path, help="H.264 byte stream at 25 frames a second instead of the usual")
    parser.add_argument("--origin-threads", type=int, default=1)
    parser.add_argument("--json", type=pathlib.Path, help="also write every single result there")


@contextlib.contextmanager
def film(arguments):
    """Makes the film that arguments.video names where no other one was given."""
    with tempfile.TemporaryDirectory() as folder:
        if not arguments.video:
            arguments.video = pathlib.Path(folder) / "video.h264"
            make_video(arguments.video)
        yield


def circumstances(arguments, load):
    """When, where and how often it was measured. `load` is the machine's before the measurement."""
    return (f"{datetime.date.today()}, {os.cpu_count()} cores, Linux {os.uname().release}, load before {load:.1f}, "
            f"{arguments.rounds} rounds of {arguments.seconds:g} s")
