"""Recordings of which every frame is known, and which of its frames a client received."""

import dataclasses
import hashlib
import subprocess

CLOCK_RATE = 90000  # of the video's RTP timestamps
RATE = 25  # frames a second
GOP = 25


@dataclasses.dataclass
class Frame:
    number: int     # in the film
    timestamp: int  # RTP
    key: bool
    packets: list


class CountedRecordings:
    """A film whose frames all differ; those that travel unchanged through a server are known again."""

    def __init__(self, path):
        self.path = path
        stream = subprocess.run(
            ["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:v", "-c", "copy", "-bsf:v", "h264_mp4toannexb",
             "-f", "h264", "-"], capture_output=True, check=True, timeout=60).stdout
        checksums = _frame_checksums(stream)
        self.numbers = {checksum: number for number, checksum in enumerate(checksums)}
        assert len(self.numbers) == len(checksums), "every frame is one of its kind"

    @staticmethod
    def make(path, seconds):
        """Test pattern with a running count, without B frames, a key frame each second, one slice a frame; and
        a tone."""
        subprocess.run(
            ["ffmpeg", "-nostdin", "-v", "error", "-y",
             "-f", "lavfi", "-i", f"testsrc2=size=320x240:rate={RATE}:duration={seconds}",
             "-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=8000:duration={seconds}",
             "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "fast", "-crf", "28", "-g", str(GOP), "-bf", "0",
             "-x264-params", f"scenecut=0:sliced-threads=0:slices=1:keyint={GOP}:min-keyint={GOP}",
             "-c:a", "aac", "-b:a", "32k", path], check=True, timeout=120)

    def frames(self, packets):
        """The frames in a track's RTP packets, in the order of their arrival, where all packets came in order"""
        frames = []
        for group in _by_timestamp(packets):
            slices = [unit for unit in units(group) if unit[0] & 0x1F in (1, 5)]
            assert len(slices) == 1, f"{len(slices)} slices in one frame"
            checksum = _checksum(slices[0])
            assert checksum in self.numbers, "a frame that is not the film's"
            frames.append(Frame(self.numbers[checksum], group[0].timestamp, slices[0][0] & 0x1F == 5, group))
        return frames

    def numbers_in(self, stream):
        """The frames in a byte stream of H.264, which must all be the film's."""
        return [self.numbers[checksum] for checksum in _frame_checksums(stream)]

    def next(self, number):
        return (number + 1) % len(self.numbers)


def _frame_checksums(stream):
    units = [unit.rstrip(b"\0") for unit in stream.split(b"\0\0\1")[1:]]
    return [_checksum(unit) for unit in units if unit[0] & 0x1F in (1, 5)]


def _checksum(unit):
    return hashlib.md5(unit).digest()


def _by_timestamp(packets):
    """Whole access units alone: the last one may not have arrived yet."""
    groups = []
    for packet in packets:
        if not groups or groups[-1][-1].marker:
            groups.append([])
        groups[-1].append(packet)
    return [group for group in groups if group[-1].marker]


def units(packets):
    """The NAL units in the packets of an access unit (RFC 6184)."""
    units, fragments = [], None
    for packet in packets:
        payload = packet.payload
        kind = payload[0] & 0x1F
        if kind == 28:
            if payload[1] & 0x80:
                fragments = bytes([(payload[0] & 0xE0) | (payload[1] & 0x1F)])
            fragments += payload[2:]
            if payload[1] & 0x40:
                units.append(fragments)
                fragments = None
        elif kind == 24:
            at = 1
            while at + 2 < len(payload):
                size = int.from_bytes(payload[at:at + 2], "big")
                units.append(payload[at + 2:at + 2 + size])
                at += 2 + size
        else:
            units.append(payload)
    assert fragments is None, "the last packet of a fragmented unit"
    return [unit.rstrip(b"\0") for unit in units]
