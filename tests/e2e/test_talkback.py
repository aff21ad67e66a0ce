import datetime
import re
import time

import pytest
from server import wait_until
from audio import RATE, decode, encode, likeness, longest_hole, place, read_wav, speech, strongest, tone
from speaker import Speaker, closings, openings, talk_back, wait_for_end, wait_for_output

pytestmark = pytest.mark.usefixtures("real_time")

ENOUGH = 0.9
DELAY_SECONDS = 0.120
PACKET_SECONDS = 0.020


@pytest.fixture(scope="module")
def sentence():
    return speech()


@pytest.fixture(scope="module")
def greeting():
    """For what does not depend on how much is said."""
    return speech("Hello there.")


def packets_of(audio, codec="pcmu"):
    """Packets to send, and the audio that is to be played of them."""
    packets = encode(codec, audio)
    return packets, decode(codec, packets)


def opened(server):
    """When the output was opened last, as seconds since 1970."""
    return datetime.datetime.fromisoformat(openings(server)[-1]).timestamp()


def played(server):
    """What was played, when the output is closed and everything is in the file."""
    wait_for_end(server)
    server.stop()
    return read_wav(server.folder / "talk.wav")


def talk(server, transport, codec, packets, **kwargs):
    with Speaker(server.url(), transport, codec).open() as speaker:
        wait_for_output(server)
        speaker.speak(packets, **kwargs)
        speaker.rest()
        speaker.tear_down()
        return speaker


@pytest.mark.parametrize("codec", ["pcmu", "pcma", "aac", "opus"])
def test_a_sentence_is_played_with_little_delay(serve, transport, codec, sentence):
    server = serve(talk_back(codec=codec))
    packets, sent = packets_of(sentence, codec)
    speaker = talk(server, transport, codec, packets)
    at_open = opened(server)
    audio = played(server)
    assert likeness(sent, audio) > ENOUGH
    # When the sentence's first sample was played, and when it would have been sent.
    played_at = at_open + place(sent, audio) / RATE
    assert 0 < played_at - speaker.sent_at[0] < DELAY_SECONDS


@pytest.mark.parametrize("codec", ["pcmu", "pcma", "aac", "opus"])
def test_a_tone_keeps_its_pitch_and_level_without_a_hole(serve, transport, codec):
    server = serve(talk_back(codec=codec))
    talk(server, transport, codec, packets_of(tone(seconds=2.0), codec)[0])
    audio = played(server)
    begin = int((abs(audio) > 4000).argmax())
    middle = audio[begin + RATE // 10:begin + 18 * RATE // 10]
    hertz, amplitude = strongest(middle)
    assert abs(hertz - 1000) < 1
    assert abs(amplitude / 8000 - 1) < 0.1
    assert longest_hole(middle, 8000) <= PACKET_SECONDS


def test_a_sentence_stays_intelligible_with_loss_and_reordering(serve, transport, sentence):
    server = serve(talk_back())
    packets, sent = packets_of(sentence)
    talk(server, transport, "pcmu", packets, lost=0.05, late=0.05)
    assert likeness(sent, played(server)) > ENOUGH
    counted = re.search(r"(\d+) packets, (\d+) lost, (\d+) late", server.log())
    assert 0.02 * len(packets) < int(counted.group(2)) < 0.09 * len(packets)
    assert counted.group(3) == "0", "what came after its successor was put in its place"


def test_pause_closes_the_output_and_play_opens_it_again(serve, transport, greeting):
    server = serve(talk_back())
    packets, sent = packets_of(greeting)
    path = server.folder / "talk.wav"
    with Speaker(server.url(), transport).open() as speaker:
        wait_for_output(server)
        speaker.speak(packets)
        speaker.rest()
        speaker.pause()
        wait_for_end(server)
        first = read_wav(path)
        assert likeness(sent, first) > ENOUGH
        speaker.speak(packets[:5])
        assert len(read_wav(path)) == len(first), "a paused client is not played"
        assert speaker.play().status == 200
        wait_for_output(server, times=2)
        speaker.speak(packets)
        speaker.rest()
        speaker.tear_down()
    wait_for_end(server, times=2)
    server.stop()
    assert likeness(sent, read_wav(path)[len(first):]) > ENOUGH


def test_a_client_that_vanishes_in_mid_sentence_leaves_no_session(serve, transport, greeting):
    server = serve(talk_back())
    speaker = Speaker(server.url(), transport).open()
    wait_for_output(server)
    speaker.speak(packets_of(greeting)[0][:15])
    speaker.close()
    wait_until(lambda: server.sessions() == 0 and closings(server) == 1, 10, "the session ends and the output closes")
    assert re.search(r"talk-back: 127\.0\.0\.1.* ended; \d+ packets", server.log())


def test_an_output_that_does_not_open_is_tried_every_300_milliseconds_and_recovers(serve, transport, greeting):
    server = serve(talk_back(device="later/talk.wav"))
    server.allow_problem(r"later/talk\.wav cannot be opened: No such file or directory")
    packets, sent = packets_of(greeting)
    failure = "library: OVAudioBackDispatcherMgr::processPlayer MediaPlayer open fail, return nRet = -9"
    with Speaker(server.url(), transport).open() as speaker:
        wait_until(lambda: failure in server.log(), 5, "it is tried once")
        started = time.monotonic()
        speaker.rest(1.5)
        (server.folder / "later").mkdir()
        seconds = time.monotonic() - started
        wait_for_output(server)
        speaker.speak(packets)
        speaker.rest()
        speaker.tear_down()
    wait_for_end(server)
    server.stop()
    assert likeness(sent, read_wav(server.folder / "later" / "talk.wav")) > ENOUGH
    assert len(re.findall("cannot be opened", server.log())) == 1, "one line in the log is enough"
    assert server.log().count(failure) == 1, "and one of the library"
    further = sum(int(count) for count in re.findall(r"MediaPlayer open fail.*: (\d+) more within", server.log()))
    assert 4 <= further <= seconds / 0.3 + 1


def test_the_file_is_whole_after_the_server_was_killed(serve, transport, sentence):
    server = serve(talk_back())
    packets, _ = packets_of(sentence)
    said = decode("pcmu", packets[:70])
    with Speaker(server.url(), transport).open() as speaker:
        wait_for_output(server)
        speaker.speak(packets[:80])
        speaker.rest(0.2)
        server.kill()
    assert likeness(said, read_wav(server.folder / "talk.wav")) > ENOUGH
