"""Audio to send and to judge: sentences and tones, their encodings, and how similar two recordings are."""

import struct
import subprocess
import wave

import numpy

RATE = 48000  # of the WAV files that the server writes here
SENTENCE = "Hello there, please leave the parcel at the door."
FORMATS = {"pcmu": "mulaw", "pcma": "alaw"}
CLOCK = {"pcmu": 8000, "pcma": 8000, "aac": 16000, "opus": 48000}
BLOCK = RATE * 4 // 10
SHIFT = RATE // 10
LEAD_SECONDS = 0.6  # silence before the audio of clients that cannot see when the output opens: a third of a second after PLAY


def speech(text=SENTENCE, voice="en", speed=165):
    """A spoken sentence as samples at RATE."""
    run = subprocess.run(["espeak-ng", "-v", voice, "-s", str(speed), "--stdout", text], capture_output=True, check=True)
    return _ffmpeg(["-f", "wav", "-i", "-"], ["-f", "s16le", "-ar", str(RATE), "-ac", "1"], run.stdout)


def tone(hertz=1000.0, seconds=3.0, amplitude=8000):
    at = numpy.arange(int(seconds * RATE)) / RATE
    return numpy.round(amplitude * numpy.sin(2 * numpy.pi * hertz * at)).astype("<i2")


def with_lead(samples):
    return numpy.concatenate([numpy.zeros(int(LEAD_SECONDS * RATE), "<i2"), samples])


def encode(codec, samples):
    """[(payload, ticks)] for RTP, 20 ms each in PCM and Opus, one access unit each in AAC."""
    source = ["-f", "s16le", "-ar", str(RATE), "-ac", "1", "-i", "-"]
    if codec == "aac":
        data = _run(source, ["-c:a", "aac", "-b:a", "48k", "-ar", "16000", "-ac", "1", "-f", "adts"], samples.tobytes())
        # RFC 3640: one header of 13 bits size and 3 bits index.
        return [(b"\x00\x10" + (len(unit) << 3).to_bytes(2, "big") + unit, 1024) for unit in adts_units(data)]
    if codec == "opus":
        data = _run(source, ["-c:a", "libopus", "-b:a", "64k", "-page_duration", "1", "-f", "ogg"], samples.tobytes())
        return [(packet, 960) for packet in ogg_packets(data)[2:]]
    data = _run(source, ["-ar", "8000", "-ac", "1", "-f", FORMATS[codec]], samples.tobytes())
    return [(data[at:at + 160], 160) for at in range(0, len(data) - 159, 160)]


def decode(codec, packets):
    """What an ideal receiver plays of encode()'s packets, as samples at RATE."""
    out = ["-f", "s16le", "-ar", str(RATE), "-ac", "1"]
    if codec == "aac":
        data = b"".join(adts_header(len(payload) - 4) + payload[4:] for payload, _ in packets)
        return _ffmpeg(["-f", "aac", "-i", "-"], out, data)
    if codec == "opus":
        return _ffmpeg(["-f", "ogg", "-i", "-"], out, ogg_opus([payload for payload, _ in packets]))
    data = b"".join(payload for payload, _ in packets)
    return _ffmpeg(["-f", FORMATS[codec], "-ar", "8000", "-ac", "1", "-i", "-"], out, data)


def ogg_packets(data):
    """The packets of an Ogg file with one stream (RFC 3533, section 6)."""
    packets, at, unfinished = [], 0, b""
    while data[at:at + 4] == b"OggS":
        count = data[at + 26]
        sizes = data[at + 27:at + 27 + count]
        at += 27 + count
        for size in sizes:
            unfinished += data[at:at + size]
            at += size
            if size < 255:
                packets.append(unfinished)
                unfinished = b""
    return packets


def ogg_opus(packets):
    """An Ogg file of Opus packets of 20 ms and one channel (RFC 7845), each on a page of its own."""
    head = b"OpusHead" + struct.pack("<BBHIhB", 1, 1, 0, RATE, 0, 0)
    tags = b"OpusTags" + struct.pack("<I", 4) + b"test" + struct.pack("<I", 0)
    pages = [ogg_page(0, 2, 0, head), ogg_page(1, 0, 0, tags)]
    for index, packet in enumerate(packets):
        pages.append(ogg_page(index + 2, 4 if index + 1 == len(packets) else 0, 960 * (index + 1), packet))
    return b"".join(pages)


def ogg_page(number, flags, position, packet):
    lacing = b"\xff" * (len(packet) // 255) + bytes([len(packet) % 255])
    header = b"OggS" + struct.pack("<BBqII", 0, flags, position, 1, number)
    rest = bytes([len(lacing)]) + lacing + packet
    return header + struct.pack("<I", ogg_checksum(header + bytes(4) + rest)) + rest


def ogg_checksum(data):
    value = 0
    for byte in data:
        value ^= byte << 24
        for _ in range(8):
            value = (value << 1 ^ (0x04C11DB7 if value & 0x80000000 else 0)) & 0xFFFFFFFF
    return value


def adts_units(data):
    units, at = [], 0
    while at + 7 <= len(data):
        size = (data[at + 3] & 3) << 11 | data[at + 4] << 3 | data[at + 5] >> 5
        units.append(data[at + 7:at + size])
        at += size
    return units


def adts_header(size):
    """Of an access unit in AAC-LC, 16 kHz, one channel."""
    size += 7
    return bytes([0xFF, 0xF1, 0x60, 0x40 | size >> 11, size >> 3 & 0xFF, (size & 7) << 5 | 0x1F, 0xFC])


def read_wav(path):
    """The samples of a WAV file that may be growing, as floating point."""
    data = path.read_bytes()
    assert data[:4] == b"RIFF" and data[8:16] == b"WAVEfmt " and data[36:40] == b"data", data[:44]
    assert int.from_bytes(data[24:28], "little") == RATE and data[22] == 1
    size = int.from_bytes(data[40:44], "little")
    assert size <= len(data) - 44, "the header promises no more than there is"
    return numpy.frombuffer(data[44:44 + size], "<i2").astype(float)


def write_wav(path, samples):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(RATE)
        file.writeframes(samples.astype("<i2").tobytes())


def place(audio, captured):
    """Where `audio` starts in `captured`: the offset in samples at which they match best."""
    assert len(captured) >= len(audio), f"only {len(captured) / RATE:.2f} s of {len(audio) / RATE:.2f} s were captured"
    size = 1 << (len(captured) + len(audio) - 1).bit_length()
    product = numpy.fft.irfft(numpy.fft.rfft(captured, size) * numpy.conj(numpy.fft.rfft(audio.astype(float), size)), size)
    return int(numpy.argmax(product[:len(captured) - len(audio) + 1]))


def likeness(audio, captured):
    """Correlation of `audio` with the best match in `captured`: 1 for the same audio at any level.

    Block by block: after a moment in which a busy machine sent or played late, the rest may be a little later.
    """
    at = place(audio, captured)
    audio = audio.astype(float)
    product = power = 0.0
    for begin in range(0, len(audio), BLOCK):
        part = audio[begin:begin + BLOCK]
        first = max(0, at + begin - SHIFT)
        nearby = captured[first:at + begin + len(part) + SHIFT]
        if len(nearby) < len(part):
            continue
        offset = place(part, nearby)
        found = nearby[offset:offset + len(part)]
        product += found @ part
        power += found @ found
    norm = numpy.sqrt(power * (audio @ audio))
    return float(product / norm) if norm else 0.0


def strongest(captured):
    """Frequency in Hz and amplitude of the strongest tone."""
    window = numpy.hanning(len(captured))
    spectrum = numpy.abs(numpy.fft.rfft(captured * window))
    peak = int(numpy.argmax(spectrum[1:-1])) + 1
    left, middle, right = spectrum[peak - 1:peak + 2]
    shift = 0.5 * (left - right) / (left - 2 * middle + right)
    power = (spectrum[max(0, peak - 3):peak + 4] ** 2).sum() / (window ** 2).sum()
    return (peak + shift) * RATE / len(captured), float(numpy.sqrt(4 * power / len(captured)))


def amplitude(hertz, captured):
    """Of one tone."""
    turning = numpy.exp(-2j * numpy.pi * hertz * numpy.arange(len(captured)) / RATE)
    return float(2 * abs(captured @ turning) / len(captured))


def longest_hole(captured, level):
    """Seconds of the longest stretch whose level over each millisecond stays below a tenth of `level`."""
    block = RATE // 1000
    blocks = captured[:len(captured) // block * block].reshape(-1, block)
    longest = run = 0
    for quiet in numpy.abs(blocks).max(axis=1) < level / 10:
        run = run + 1 if quiet else 0
        longest = max(longest, run)
    return longest / 1000


def _run(before, after, data):
    return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", *before, *after, "-"], input=data, capture_output=True,
                          check=True, timeout=30).stdout


def _ffmpeg(before, after, data):
    return numpy.frombuffer(_run(before, after, data), "<i2")
