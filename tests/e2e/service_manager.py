"""What a service manager is to ovrtspd: a socket for its reports, and the sockets that it passes."""

import fcntl
import os
import pathlib
import socket
import subprocess
import sys
import time

# Puts the descriptors where the protocol wants them, and names the process that gets them: this one.
PASS = """
import os, sys
for place, number in enumerate(map(int, sys.argv[1].split(","))):
    os.dup2(number, 3 + place, inheritable=True)
os.environ["LISTEN_PID"] = str(os.getpid())
os.execv(sys.argv[2], sys.argv[2:])
"""


class ServiceManager:
    """Starts one server: manager.start is passed to Server as `start`."""

    def __init__(self, folder, watchdog_seconds=None, sockets=()):
        """`sockets`: pairs of name and listening socket."""
        self.path = pathlib.Path(folder) / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(self.path))
        self.received = []
        self.sockets = sockets
        self.environment = dict(os.environ, NOTIFY_SOCKET=str(self.path))
        if watchdog_seconds is not None:
            self.environment["WATCHDOG_USEC"] = str(watchdog_seconds * 1000000)

    def start(self, command, **kwargs):
        command = [str(argument) for argument in command]
        environment = dict(self.environment)
        # Beyond the places that they get.
        numbers = [fcntl.fcntl(passed.fileno(), fcntl.F_DUPFD, 100) for _, passed in self.sockets]
        if numbers:
            environment["LISTEN_FDS"] = str(len(numbers))
            environment["LISTEN_FDNAMES"] = ":".join(name for name, _ in self.sockets)
            command = [sys.executable, "-c", PASS, ",".join(map(str, numbers)), *command]
        try:
            return subprocess.Popen(command, env=environment, pass_fds=numbers, **kwargs)
        finally:
            for number in numbers:
                os.close(number)

    def read(self, seconds):
        """The next report, or None."""
        self.socket.settimeout(max(seconds, 0.001))
        try:
            self.received.append(self.socket.recv(4096).decode())
        except TimeoutError:
            return None
        return self.received[-1]

    def read_waiting(self):
        """All reports that have arrived."""
        while self.read(0):
            pass
        return self.received

    def wait_for(self, start, seconds=20):
        """Reads until a report starts with `start`, and returns it."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            report = self.read(end - time.monotonic())
            if report is not None and report.startswith(start):
                return report
        raise AssertionError(f"no {start} within {seconds} s: {self.received}")


def listening(address="127.0.0.1", family=socket.AF_INET):
    listener = socket.socket(family)
    listener.bind((address, 0))
    listener.listen()
    return listener
