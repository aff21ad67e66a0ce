"""A network that loses, reorders and repeats packets, for a test that is alone in its network namespace.

It is made of a TUN device, because not every kernel has netem: what this machine sends to OTHER comes back to it as if
OTHER had sent it, so both ends of a connection are here and every packet of both directions passes through."""

import contextlib
import fcntl
import heapq
import os
import random
import select
import struct
import threading
import time

import pytest
from network import ip, need_own_network

HERE = "192.0.2.1"
OTHER = "192.0.2.2"
DEVICE = "ovlossy0"
LATE_SECONDS = 0.004
SET_INTERFACE = 0x400454CA  # TUNSETIFF
TUN_WITHOUT_HEADER = 0x1001  # IFF_TUN | IFF_NO_PI


class LossyNetwork:
    """`lost`, `reordered` and `repeated` are of 100 packets. They may be set while it runs."""

    def __init__(self, lost=0, reordered=0, repeated=0, seed=1):
        need_own_network()
        try:
            self.device = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
            fcntl.ioctl(self.device, SET_INTERFACE, struct.pack("16sH", DEVICE.encode(), TUN_WITHOUT_HEADER))
        except OSError as error:
            pytest.skip(f"no TUN device can be made: {error}")
        ip("address", "add", f"{HERE}/24", "dev", DEVICE)
        ip("link", "set", DEVICE, "up")
        self.lost, self.reordered, self.repeated = lost, reordered, repeated
        self.passed = 0
        self.random = random.Random(seed)
        self.closing = threading.Event()
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.closing.set()
        self.thread.join()
        os.close(self.device)

    def _happens(self, of_hundred):
        return self.random.random() * 100 < of_hundred

    def _run(self):
        late = []
        while not self.closing.is_set():
            pause = max(0.0, late[0][0] - time.monotonic()) if late else 0.1
            readable, _, _ = select.select([self.device], [], [], pause)
            if readable:
                packet = os.read(self.device, 65536)
                # Addresses change places, which leaves all checksums as they are.
                if packet[0] >> 4 == 4 and not self._happens(self.lost):
                    packet = packet[:12] + packet[16:20] + packet[12:16] + packet[20:]
                    self.passed += 1
                    due = time.monotonic() + LATE_SECONDS if self._happens(self.reordered) else 0.0
                    for _ in range(1 + self._happens(self.repeated)):
                        heapq.heappush(late, (due, self.passed, packet))
            while late and late[0][0] <= time.monotonic():
                with contextlib.suppress(BlockingIOError):
                    os.write(self.device, heapq.heappop(late)[2])
