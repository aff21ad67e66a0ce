"""A running ovrtspd for a test: started with a configuration of its own, ended and judged at the end."""

import os
import pathlib
import re
import signal
import subprocess
import time

from processor import waited, waits_for_disk

START_SECONDS = 20
STOP_SECONDS = 1.0

# Port 0 lets the system choose, so that several servers run side by side.
DEFAULT_CONFIG = """
port = 0
log-level = "debug"
"""


class Server:
    """One ovrtspd process. Its output goes to files in `folder`. In a `with` statement it is stopped and judged at the
    end, or just killed after an exception."""

    def __enter__(self):
        return self

    def __exit__(self, exception, *_):
        try:
            if exception is None:
                self.stop()
        finally:
            self.kill()

    def __init__(self, binary, folder, config=DEFAULT_CONFIG, arguments=(), start=subprocess.Popen):
        """`start`: starts the process, as Popen does."""
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.config_path = self.folder / "ovrtspd.toml"
        self.write_config(config)
        self.output_path = self.folder / "stdout.txt"
        self.log_path = self.folder / "log.txt"
        self.allowed_problems = []
        self._waited = 0.0
        self._start = start  # what it belongs to lives as long
        with open(self.output_path, "wb") as output, open(self.log_path, "wb") as log:
            self.process = start(
                [binary, "--config", str(self.config_path), *arguments],
                stdin=subprocess.DEVNULL, stdout=output, stderr=log)
        self.address, self.port = self._wait_until_ready()

    def write_config(self, config):
        """What it reads when it starts, or is asked to read it again."""
        # The same tests are run once more for the second live controller.
        if "OV_LIVE_CONTROLLER" in os.environ and "live-controller" not in config:
            config = f'live-controller = "{os.environ["OV_LIVE_CONTROLLER"]}"\n{config}'
        # Several servers run side by side: the HTTP service is for the tests that ask for it.
        if "[http]" not in config:
            config = f'{config}\n[http]\nlisten = ""\n'
        self.config_path.write_text(config)

    def _wait_until_ready(self):
        """It prints the URLs that it serves as soon as it listens."""
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end:
            found = re.search(r"^\s*rtsp://([0-9.]+):(\d+)/.*\n", self.output(), re.M)
            if found:
                return found.group(1), int(found.group(2))
            if self.process.poll() is not None:
                break
            time.sleep(0.02)
        self.kill()
        raise AssertionError(f"ovrtspd did not start:\n{self.output()}{self.log()}")

    @property
    def pid(self):
        return self.process.pid

    def url(self, camera=1, stream=0, credentials="", family="orv/live"):
        at = credentials + "@" if credentials else ""
        return f"rtsp://{at}{self.address}:{self.port}/{family}/{camera}/{stream}"

    def tls_url(self, path="orv/live/1/0"):
        """The same over TLS, where the configuration has it."""
        port = re.search(r"^Over TLS: rtsps://[0-9.]+:(\d+)/", self.output(), re.M).group(1)
        return f"rtsps://{self.address}:{port}/{path}"

    def output(self):
        return self.output_path.read_text(errors="replace")

    def log(self):
        return self.log_path.read_text(errors="replace")

    def allow_problem(self, pattern):
        """Warnings and errors of the log that match the regular expression are what the test provoked."""
        self.allowed_problems.append(re.compile(pattern))

    def problems(self):
        """The log's warnings and errors that the test did not provoke."""
        harmless = re.compile(r'\S+ (trace|debug|info) +\[|\{"time":"[^"]+","level":"(trace|debug|info)",')
        found = [line for line in self.log().splitlines() if not harmless.match(line)]
        return [line for line in found if not any(allowed.search(line) for allowed in self.allowed_problems)]

    def waited(self):
        """Seconds for which it could have run and had no processor, as far as is known until its end."""
        if self.process.poll() is None:
            self._waited = waited(self.pid)
        return self._waited

    def connections(self):
        """How many TCP connections the process has open, as the system counts them."""
        return len(self._socket_inodes() & _established_inodes())

    def http_port(self):
        """Where its HTTP service listens, which it says after the RTSP service."""
        def found():
            return re.search(r"listening for HTTP on \S+ port (\d+)", self.log())
        wait_until(found, START_SECONDS, "the HTTP service listens")
        return int(found().group(1))

    def sessions(self):
        """How many sessions the server has, by the last line of its log that says so; None before the first one."""
        logged = re.findall(r"\bsessions: (\d+)", self.log())
        return int(logged[-1]) if logged else None

    def _socket_inodes(self):
        inodes = set()
        for entry in pathlib.Path(f"/proc/{self.pid}/fd").iterdir():
            try:
                found = re.match(r"socket:\[(\d+)\]", os.readlink(entry))
            except FileNotFoundError:
                continue
            if found:
                inodes.add(found.group(1))
        return inodes

    def stop(self, sent=signal.SIGINT, max_seconds=STOP_SECONDS):
        """Ends the server as Ctrl-C does, and asserts that it ends cleanly within so many seconds in which it could run."""
        self.waited()
        try:
            code, seconds = end(self.process, sent)
        except subprocess.TimeoutExpired:
            self.kill()
            raise AssertionError(f"ovrtspd did not end:\n{self.log()[-4000:]}") from None
        assert code == 0, f"exit code {code}:\n{self.log()[-4000:]}"
        assert seconds < max_seconds, f"took {seconds:.2f} s to end:\n{self.log()[-2000:]}"
        assert self.problems() == []

    def kill(self):
        if self.process.poll() is None:
            self.waited()
            self.process.kill()
            self.process.wait()


def end(process, sent, patience=10):
    """Sends a process a signal. Returns its exit code, and the seconds that it took without those in which it had no
    processor or the disk kept it; throws TimeoutExpired."""
    started = at = time.monotonic()
    lost, waited_before = 0.0, waited(process.pid)
    process.send_signal(sent)
    while process.poll() is None:
        if at > started + patience:
            raise subprocess.TimeoutExpired(process.args, patience)
        time.sleep(0.01)
        now, waited_now = time.monotonic(), waited(process.pid)
        # Threads may wait side by side, and those that end are counted no more.
        lost += now - at if waits_for_disk(process.pid) else min(max(waited_now - waited_before, 0.0), now - at)
        at, waited_before = now, waited_now
    return process.returncode, time.monotonic() - started - lost


def _established_inodes():
    inodes = set()
    for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]:
        fields = line.split()
        if fields[3] == "01":
            inodes.add(fields[9])
    return inodes


def wait_until(condition, seconds, what):
    """Waits until `condition()` is true; the bound is generous, as only a failure takes so long."""
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, f"not within {seconds} s: {what}"
        time.sleep(0.05)
