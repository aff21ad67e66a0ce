"""A second machine for a test: a network namespace behind a pair of virtual Ethernet interfaces."""

import contextlib
import ctypes
import json
import os
import subprocess

import pytest

SERVER_ADDRESS = "192.0.2.1"
CLIENT_ADDRESS = "192.0.2.2"
SERVER_INTERFACE = "ovm0"
CLIENT_INTERFACE = "ovm1"
GROUPS = "239.0.0.0/8"
CLONE_NEWNET = 0x40000000


def ip(*arguments, prefix=()):
    subprocess.run([*prefix, "ip", *arguments], check=True, capture_output=True, text=True)


def need_own_network():
    """Skips the test where it is not alone: nobody else's interfaces are touched."""
    links = json.loads(subprocess.run(["ip", "-j", "link"], capture_output=True, text=True, check=True).stdout)
    others = [link["ifname"] for link in links
              if link["ifname"] not in ("lo", SERVER_INTERFACE) and "NOARP" not in link["flags"]]
    if others:
        pytest.skip(f"no network namespace of the test's own: {', '.join(others)}")


class OtherMachine:
    """Reaches this one, and the groups, over one cable."""

    def __init__(self):
        need_own_network()
        self.process = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo up; exec cat"], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        if self.process.stdout.readline() != "up\n":
            pytest.skip(f"no network namespace can be made: {self.process.stderr.read().strip()}")
        self.prefix = ("nsenter", "--net", "--target", str(self.process.pid))
        ip("link", "add", SERVER_INTERFACE, "type", "veth", "peer", "name", CLIENT_INTERFACE,
           "netns", str(self.process.pid))
        ip("address", "add", f"{SERVER_ADDRESS}/24", "dev", SERVER_INTERFACE)
        ip("link", "set", SERVER_INTERFACE, "up")
        for arguments in (("link", "set", "lo", "up"),
                          ("address", "add", f"{CLIENT_ADDRESS}/24", "dev", CLIENT_INTERFACE),
                          ("link", "set", CLIENT_INTERFACE, "up"),
                          ("route", "add", GROUPS, "dev", CLIENT_INTERFACE)):
            ip(*arguments, prefix=self.prefix)

    def close(self):
        subprocess.run(["ip", "link", "delete", SERVER_INTERFACE], capture_output=True, check=False)
        self.process.stdin.close()
        self.process.wait(timeout=10)

    @contextlib.contextmanager
    def inside(self):
        """Sockets that are made in the block are the other machine's."""
        libc = ctypes.CDLL(None, use_errno=True)
        here = os.open("/proc/self/ns/net", os.O_RDONLY)
        there = os.open(f"/proc/{self.process.pid}/ns/net", os.O_RDONLY)
        try:
            _enter(libc, there)
            try:
                yield
            finally:
                _enter(libc, here)
        finally:
            os.close(here)
            os.close(there)

    def pull_the_cable(self):
        ip("link", "set", CLIENT_INTERFACE, "down", prefix=self.prefix)


def _enter(libc, namespace):
    if libc.setns(namespace, CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "setns")


@contextlib.contextmanager
def groups_at_loopback():
    """Clients on this machine that ask the routes join groups at the loopback interface."""
    need_own_network()
    ip("route", "add", GROUPS, "dev", "lo")
    try:
        yield
    finally:
        ip("route", "del", GROUPS, "dev", "lo")
