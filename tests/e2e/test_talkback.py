import datetime
import re

import pytest
from server import wait_until
from sound import (LEAD_SECONDS, RATE, decode, encode, likeness, longest_hole, place, read_wav, speech, strongest,
                   tone, with_lead)
from speaker import Speaker, talk_back

pytestmark = pytest.mark.usefixtures("real_time")

ENOUGH = 0.9
DELAY_SECONDS = 0.120
PACKET_SECONDS = 0.020


@pytest.fixture(scope="module")
def sentence():
    return speech()


def packets_of(sound, codec="pcmu"):
    """Packets to send, with silence before the sound; and what is to be heard of it."""
    packets = encode(codec, with_lead(sound))
    return packets, decode(codec, packets)[int(LEAD_SECONDS * RATE):]


def opened(server):
    """When the output was opened last, as seconds since 1970."""
    found = re.findall(r"^(\S+) \S+ +\[\d+\] talk-back: WAV file \S+ of ovrtspd is open", server.log(), re.M)
    return datetime.datetime.fromisoformat(found[-1]).timestamp()


def closings(server):
    return len(re.findall(r"talk-back: WAV file \S+ is closed", server.log()))


def heard(server):
    """What was played, when the output is closed and everything is in the file."""
    wait_until(lambda: closings(server) > 0, 5, "the output is closed")
    server.stop()
    return read_wav(server.folder / "talk.wav")


def talk(server, transport, codec, packets, **kwargs):
    with Speaker(server.url(), transport, codec).open() as speaker:
        speaker.speak(packets, **kwargs)
        speaker.rest()
        speaker.tear_down()
        return speaker


@pytest.mark.parametrize("codec", ["pcmu", "pcma", "aac"])
def test_a_sentence_is_heard_soon(serve, transport, codec, sentence):
    server = serve(talk_back(codec=codec))
    packets, sent = packets_of(sentence, codec)
    speaker = talk(server, transport, codec, packets)
    at_open = opened(server)
    sound = heard(server)
    assert likeness(sent, sound) > ENOUGH
    # When the sentence's first sample was heard, and when it would have been sent.
    played = at_open + (place(sent, sound) - LEAD_SECONDS * RATE) / RATE
    assert 0 < played - speaker.sent_at[0] < DELAY_SECONDS


@pytest.mark.parametrize("codec", ["pcmu", "pcma", "aac"])
def test_a_tone_keeps_its_pitch_and_level_without_a_hole(serve, transport, codec):
    server = serve(talk_back(codec=codec))
    talk(server, transport, codec, packets_of(tone(seconds=2.0), codec)[0])
    sound = heard(server)
    begin = int((abs(sound) > 4000).argmax())
    middle = sound[begin + RATE // 10:begin + 18 * RATE // 10]
    hertz, amplitude = strongest(middle)
    assert abs(hertz - 1000) < 1
    assert abs(amplitude / 8000 - 1) < 0.1
    assert longest_hole(middle, 8000) <= PACKET_SECONDS


def test_a_sentence_stays_intelligible_with_loss_and_reordering(serve, transport, sentence):
    server = serve(talk_back())
    packets, sent = packets_of(sentence)
    talk(server, transport, "pcmu", packets, lost=0.05, late=0.05)
    assert likeness(sent, heard(server)) > ENOUGH
    counted = re.search(r"(\d+) packets, (\d+) lost, (\d+) late", server.log())
    assert 0.02 * len(packets) < int(counted.group(2)) < 0.09 * len(packets)
    assert counted.group(3) == "0", "what came after its successor was put in its place"


def test_pause_closes_the_output_and_play_opens_it_again(serve, transport, sentence):
    server = serve(talk_back())
    packets, sent = packets_of(sentence)
    path = server.folder / "talk.wav"
    with Speaker(server.url(), transport).open() as speaker:
        speaker.speak(packets)
        speaker.rest()
        speaker.pause()
        wait_until(lambda: closings(server) == 1, 5, "pause closes the output")
        first = read_wav(path)
        assert likeness(sent, first) > ENOUGH
        speaker.speak(packets[:20])
        assert len(read_wav(path)) == len(first), "who pauses is not heard"
        assert speaker.play().status == 200
        speaker.speak(packets)
        speaker.rest()
        speaker.tear_down()
    wait_until(lambda: closings(server) == 2, 5, "the end closes the output")
    server.stop()
    assert likeness(sent, read_wav(path)[len(first):]) > ENOUGH


def test_a_client_that_vanishes_in_mid_sentence_leaves_no_session(serve, transport, sentence):
    server = serve(talk_back())
    speaker = Speaker(server.url(), transport).open()
    speaker.speak(packets_of(sentence)[0][:60])
    speaker.close()
    wait_until(lambda: server.sessions() == 0 and closings(server) == 1, 10, "the session ends and the output closes")
    assert re.search(r"talk-back: 127\.0\.0\.1.* ended; \d+ packets", server.log())


def test_an_output_that_does_not_open_is_tried_every_300_milliseconds_and_recovers(serve, transport, sentence):
    server = serve(talk_back(device="later/talk.wav"))
    server.allow_problem(r"later/talk\.wav cannot be opened: No such file or directory")
    packets, sent = packets_of(sentence)
    failure = "OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = -9"
    with Speaker(server.url(), transport).open() as speaker:
        speaker.rest(0.5)
        before = server.output().count(failure)
        speaker.rest(3.0)
        assert 8 <= server.output().count(failure) - before <= 11
        (server.folder / "later").mkdir()
        wait_until(lambda: "is open" in server.log(), 2, "the output is opened")
        speaker.speak(packets)
        speaker.rest()
        speaker.tear_down()
    wait_until(lambda: closings(server) == 1, 5, "the output is closed")
    server.stop()
    assert likeness(sent, read_wav(server.folder / "later" / "talk.wav")) > ENOUGH
    assert len(re.findall("cannot be opened", server.log())) == 1, "one line in the log is enough"


def test_the_file_is_whole_after_the_server_was_killed(serve, transport, sentence):
    server = serve(talk_back())
    packets, _ = packets_of(sentence)
    said = decode("pcmu", packets[:120])[int(LEAD_SECONDS * RATE):]
    with Speaker(server.url(), transport).open() as speaker:
        speaker.speak(packets[:130])
        speaker.rest(0.2)
        server.kill()
    assert likeness(said, read_wav(server.folder / "talk.wav")) > ENOUGH
