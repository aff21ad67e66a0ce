import threading

import pytest
from server import wait_until
from audio import RATE, amplitude, encode, read_wav, tone
from speaker import Speaker, talk_back, wait_for_end, wait_for_output

pytestmark = pytest.mark.usefixtures("real_time")

FIRST_HERTZ = 600
SECOND_HERTZ = 1400
LEVEL = 8000
SECONDS = 2.0
LATER_SECONDS = 1.0


def both_talk(server, transport):
    """Two clients' tones, the second one a second later; returns the audio that was played, from the start of the first."""
    with Speaker(server.url(), transport, seed=1).open() as first, \
            Speaker(server.url(), transport, seed=2).open() as second:
        first_packets = encode("pcmu", tone(FIRST_HERTZ, SECONDS, LEVEL))
        # The second one listens to its own connection alone, as the first one does: each has its own thread.
        later = threading.Timer(LATER_SECONDS, second.speak, [encode("pcmu", tone(SECOND_HERTZ, SECONDS, LEVEL))])
        wait_for_output(server)
        later.start()
        first.speak(first_packets)
        later.join()
        first.rest()
        first.tear_down()
        second.tear_down()
    wait_for_end(server)
    server.stop()
    audio = read_wav(server.folder / "talk.wav")
    begin = int((abs(audio) > LEVEL / 2).argmax())
    return lambda hertz, at: amplitude(hertz, audio[begin + int(at * RATE):begin + int((at + 0.25) * RATE)]) / LEVEL


@pytest.mark.parametrize("policy, played", [("first", (1, 0)), ("newest", (0, 1)), ("mix", (1, 1))])
def test_policy_decides_which_of_two_senders_is_played(serve, transport, policy, played):
    server = serve(talk_back(policy=policy))
    level = both_talk(server, transport)
    assert level(FIRST_HERTZ, 0.5) == pytest.approx(1, abs=0.15), "alone at first"
    assert level(SECOND_HERTZ, 0.5) < 0.05
    assert level(FIRST_HERTZ, 1.4) == pytest.approx(played[0], abs=0.15)
    assert level(SECOND_HERTZ, 1.4) == pytest.approx(played[1], abs=0.15)
    # By then the first one has been silent for more than half a second.
    assert level(FIRST_HERTZ, 2.68) < 0.05
    assert level(SECOND_HERTZ, 2.68) == pytest.approx(1, abs=0.15)


def test_with_refuse_a_second_client_is_answered_453_until_the_first_one_ends(serve, transport):
    server = serve(talk_back(policy="refuse"))
    with Speaker(server.url(), transport).open() as first:
        with Speaker(server.url(), transport) as second:
            second.describe()
            assert second.setup().status == 453
        wait_for_output(server)
        first.speak(encode("pcmu", tone(FIRST_HERTZ, 0.5, LEVEL)))
        first.rest()
        first.tear_down()
        wait_for_end(server)
        with Speaker(server.url(), transport, seed=2).open() as second:
            wait_for_output(server, times=2)
            second.speak(encode("pcmu", tone(SECOND_HERTZ, 0.5, LEVEL)))
            second.rest()
            second.tear_down()
    wait_until(lambda: server.sessions() == 0, 5, "no session is left")
    server.stop()
    audio = read_wav(server.folder / "talk.wav")
    begin = int((abs(audio) > LEVEL / 2).argmax())
    assert amplitude(FIRST_HERTZ, audio[begin:begin + RATE // 3]) > 0.8 * LEVEL
    end = len(audio) - int((abs(audio[::-1]) > LEVEL / 2).argmax())
    assert amplitude(SECOND_HERTZ, audio[end - RATE // 3:end]) > 0.8 * LEVEL
