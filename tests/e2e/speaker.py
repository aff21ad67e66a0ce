"""A sender of real audio in real time, whose packets may be lost or come late."""

import random
import re
import time

from server import wait_until
from audio import CLOCK
from talk_sender import REQUIRE, TalkSender, rtp

CONFIG = '''
port = 0
log-level = "debug"

[limits]
orphan-timeout = 2

[talk-back]
output = "{output}"
device = "{device}"
policy = "{policy}"

[[camera]]
id = 1
talk-back = "{codec}"
  [[camera.stream]]
  id = 0
  width = 320
  height = 240
  bit-rate = 200
'''


def talk_back(device="talk.wav", codec="pcmu", policy="first", output="wav"):
    """Configuration of a server with talk-back."""
    return CONFIG.format(output=output, device=device, codec=codec, policy=policy)


def openings(server):
    """When the output was opened, as the log has it."""
    return re.findall(r"^(\S+) \S+ +\[\d+\] talk-back: .* of ovrtspd is open", server.log(), re.M)


def closings(server):
    """How many times the output was closed."""
    return len(re.findall(r"talk-back: .* is closed", server.log()))


def wait_for_output(server, times=1):
    """Until the output was opened so many times: the worker looks every 300 ms, and what comes before is not played."""
    wait_until(lambda: len(openings(server)) >= times, 5, f"the output is opened {times} times")


def wait_for_end(server, times=1):
    """Until the output was closed so many times."""
    wait_until(lambda: closings(server) >= times, 5, f"the output is closed {times} times")


class Speaker(TalkSender):
    """Speaks packets of audio.encode()."""

    def __init__(self, url, transport, codec="pcmu", seed=1):
        super().__init__(url, transport)
        self.codec = codec
        self.random = random.Random(seed)
        self.sequence = self.random.randrange(1 << 16)
        self.timestamp = self.random.randrange(1 << 32)
        self.ssrc = self.random.randrange(1 << 32)
        self.payload_type = None
        self.sent_at = []  # wall clock, of each packet of the last speak()

    def open(self):
        section = super().open()
        self.payload_type = int(section.split("\r\n")[0].split(" ")[3])
        return self

    def pause(self):
        assert self.client.request("PAUSE").status == 200

    def tear_down(self):
        assert self.client.request("TEARDOWN", headers=REQUIRE).status == 200

    def rest(self, seconds=0.3):
        """Waits until what was sent has been played."""
        self.client.receive_for(seconds)

    def speak(self, packets, lost=0.0, late=0.0):
        """Sends each packet when its audio has been recorded: `lost` of them never, `late` of them just after their
        successors."""
        schedule = []
        ticks = 0
        for index, (payload, length) in enumerate(packets):
            due = ticks / CLOCK[self.codec]
            ticks += length
            packet = rtp(self.sequence, self.timestamp, payload, self.payload_type, self.ssrc,
                         marker=index == 0 or self.codec == "aac")
            self.sequence += 1
            self.timestamp += length
            if self.random.random() < late:
                due += 1.2 * length / CLOCK[self.codec]
            elif self.random.random() < lost:
                continue
            schedule.append((due, packet))
        started = time.monotonic()
        self.sent_at = []
        for due, packet in sorted(schedule, key=lambda entry: entry[0]):
            while time.monotonic() < started + due:
                self.client.receive_for(started + due - time.monotonic())
            self.sent_at.append(time.time())
            self.send(packet)
