"""Servers that record a film whose frames are counted, and what is known of it."""

import dataclasses
import math
import re
import time

from made_once import made_once
from frames import CLOCK_RATE, GOP, RATE, CountedRecordings
from rtsp_client import RtspClient
from server import wait_until

CAMERA = 5
SECONDS = 8  # of the recording that most tests play
NTP_EPOCH = 2208988800  # seconds from 1900 to 1970


def recording(folder, stream, segment=2):
    """The configuration of one camera, whose one stream is recorded; `stream` holds that stream's other keys."""
    return f"""
port = 0
log-level = "debug"

[recording]
directory = "{folder}"
segment = {segment}

[[camera]]
id = {CAMERA}

[[camera.stream]]
id = 0
record = true
{stream}
"""


def config(film, folder, audio="none"):
    return recording(folder, f"""
source = "file"
location = "{film.path}"
audio = "{audio}"
""")


@dataclasses.dataclass
class Interval:
    """Unix seconds; recorded from begin to end without a gap."""
    begin: int
    end: int

    @property
    def seconds(self):
        return self.end - self.begin


def film(build_folder, seconds=120):
    """Made once for each build tree."""
    path = build_folder / f"e2e-counted-{seconds}.mp4"
    return CountedRecordings(made_once(path, lambda partial: CountedRecordings.make(partial, seconds)))


def url(server, begin, end, camera=CAMERA):
    return f"rtsp://{server.address}:{server.port}/orv/playback/{camera}_{begin}_{end}"


def status(server, begin, end):
    """What DESCRIBE of an interval is answered with."""
    with RtspClient(url(server, begin, end)) as client:
        return client.request("DESCRIBE").status


def record(server, seconds):
    """Waits until so many whole seconds were recorded from now on, and returns them."""
    begin = math.ceil(time.time()) + 1
    wait_until(lambda: time.time() > begin, 5, "the first second")
    wait_until(lambda: status(server, begin, begin + 1) == 200, 20, "recording has started")
    end = begin + seconds
    wait_until(lambda: time.time() > end and status(server, end, end + 1) == 200, seconds + 30, f"{seconds} s recorded")
    return Interval(begin, end)


def url_of_new(server, seconds):
    """URL of an interval that is recorded from now on."""
    interval = record(server, seconds)
    return url(server, interval.begin, interval.end)


def finish(client):
    """Receives until every track has said bye."""
    client.receive(lambda: len(byes(client)) == len(client.tracks), "every track sends BYE", 40)


def byes(client):
    """The tracks that said bye: RTCP packets with a BYE in them (RFC 3550, section 6.6)."""
    return [track for track, data in client.rtcp if 203 in packet_types(data)]


def packet_types(compound):
    types = []
    while compound:
        assert compound[0] >> 6 == 2, compound.hex()
        types.append(compound[1])
        compound = compound[4 + 4 * int.from_bytes(compound[2:4], "big"):]
    return types


def npt(answer):
    """Begin and end of the range in an answer to PLAY, in seconds."""
    begin, end = re.fullmatch(r"npt=([0-9.]+)-([0-9.]+)", answer.headers["range"]).groups()
    return float(begin), float(end)


def length(description):
    """Seconds of a presentation, by its description's range."""
    return float(re.search(r"^a=range:npt=0-([0-9.]+)\r$", description, re.M).group(1))


class Timeline:
    """Which frame of the film stands at which play time of a presentation, from one play of the whole of it."""

    def __init__(self, first):
        self.first = first

    def number(self, seconds):
        return self.first + round(seconds * RATE)

    def key_before(self, seconds):
        """The key frame at or before an instant."""
        number = self.first + math.floor(seconds * RATE + 0.01)
        return number - number % GOP


class Recorded:
    """A server that has recorded, and one play of it from the begin to the end."""

    def __init__(self, server, film):
        self.server = server
        self.film = film
        self.interval = record(server, SECONDS + 2)
        self.url = url(server, self.interval.begin, self.interval.begin + SECONDS)
        with RtspClient(self.url) as client:
            # The presentation starts with the key frame at or before the interval's begin, so much earlier.
            self.seconds = length(client.describe())
            self.lead = self.seconds - SECONDS
            self.start = self.interval.begin - self.lead
            client.setup_all()
            client.play({"Range": "npt=0-", "Speed": "8"})
            finish(client)
            self.whole = film.frames(client.rtp)
            self.timeline = Timeline(self.whole[0].number)

    def assert_whole_by_rtspsrc(self, frames):
        """rtspsrc drops what it presents at the end of the presentation or later, by times that it rounds: a last frame within
        the last milliseconds may be missing."""
        ticks = (self.whole[-1].timestamp - self.whole[0].timestamp) % (1 << 32)
        at_the_end = ticks / CLOCK_RATE > self.seconds - 0.005
        assert len(self.whole) - frames in ([0, 1] if at_the_end else [0]), "nothing is cut off"

    def play(self, transport="tcp", headers=None):
        """A client that has received everything that PLAY with these headers brings."""
        with RtspClient(self.url, transport) as client:
            client.describe()
            client.setup_all()
            client.play(headers or {})
            finish(client)
        return client

    def frames(self, client, first=0):
        return self.film.frames(client.packets(client.video())[first:])
