import subprocess

import pytest
from audio import (LEAD_SECONDS, RATE, decode, encode, likeness, longest_hole, read_wav, speech, strongest, tone,
                   with_lead, write_wav)
from speaker import talk_back, wait_for_end

pytestmark = pytest.mark.usefixtures("real_time")

ENOUGH = 0.9
CODECS = ["pcmu", "pcma", "aac", "opus"]
PACKET_SECONDS = {"pcmu": 0.020, "pcma": 0.020, "aac": 0.064, "opus": 0.020}


def say(server, build_folder, transport, samples):
    """Has a GStreamer client send it; returns the audio that was played."""
    write_wav(server.folder / "said.wav", samples)
    run = subprocess.run([build_folder / "gst_talk", server.url(), server.folder / "said.wav", transport],
                         capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stdout + run.stderr
    wait_for_end(server)
    server.stop()
    return read_wav(server.folder / "talk.wav")


@pytest.mark.parametrize("codec", CODECS)
def test_a_sentence_of_rtspsrc_is_played(serve, build_folder, transport, codec):
    server = serve(talk_back(codec=codec))
    said = with_lead(speech())
    ideal = decode(codec, encode(codec, said))[int(LEAD_SECONDS * RATE):]
    assert likeness(ideal, say(server, build_folder, transport, said)) > ENOUGH


@pytest.mark.parametrize("codec", CODECS)
def test_a_tone_of_rtspsrc_keeps_its_pitch_and_level_without_a_hole(serve, build_folder, transport, codec):
    server = serve(talk_back(codec=codec))
    audio = say(server, build_folder, transport, with_lead(tone(seconds=2.0)))
    begin = int((abs(audio) > 4000).argmax())
    middle = audio[begin + RATE // 10:begin + 18 * RATE // 10]
    hertz, level = strongest(middle)
    assert abs(hertz - 1000) < 1
    assert abs(level / 8000 - 1) < 0.1
    assert longest_hole(middle, 8000) <= PACKET_SECONDS[codec]
