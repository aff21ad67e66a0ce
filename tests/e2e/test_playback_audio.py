"""Recordings with audio: both tracks by one clock, from the begin to the end."""

import re

import pytest
import recordings
from frames import RATE
from recordings import SECONDS, byes, finish, npt
from rtsp_client import RtspClient, assert_no_gap
from server import Server


class WithAudio:
    def __init__(self, server, film):
        self.server = server
        self.film = film
        self.interval = recordings.record(server, SECONDS)
        self.url = recordings.url(server, self.interval.begin, self.interval.end)

    def play(self, transport="tcp", headers=None):
        """A client that has received everything, and at which second of the interval each packet of a track belongs."""
        with RtspClient(self.url, transport) as client:
            text = client.describe()
            client.setup_all()
            info = client.play(headers or {})
            finish(client)
        clocks = [int(rate) for rate in re.findall(r"a=rtpmap:\d+ [\w-]+/(\d+)", text)]
        begin = npt(client.answer)[0]
        times = []
        for index, clock in enumerate(clocks):
            base = info[index][1]
            times.append([begin + ((packet.timestamp - base + 2**31) % 2**32 - 2**31) / clock
                          for packet in client.packets(index)])
        return client, times


@pytest.fixture(scope="module")
def with_audio(build_folder, tmp_path_factory):
    film = recordings.film(build_folder)
    folder = tmp_path_factory.mktemp("recorded")
    server = Server(build_folder / "ovrtspd", folder, recordings.config(film, folder / "recordings", audio="aac"))
    try:
        yield WithAudio(server, film)
        server.stop()
    finally:
        server.kill()


def test_both_tracks_play_to_the_end_together(with_audio):
    client, (video, audio) = with_audio.play()
    for index in (0, 1):
        assert_no_gap(client.packets(index))
    assert sorted(byes(client)) == [0, 1]
    assert video[0] == 0 and 0 <= audio[0] < 0.15
    end = npt(client.answer)[1]
    assert SECONDS <= end < SECONDS + 1
    assert end - 0.1 < video[-1] < end
    assert end - 0.2 < audio[-1] < end
    arrivals = [times[0] for times in (video, audio)]
    assert max(arrivals) - min(arrivals) < 0.15


def test_audio_has_no_holes(with_audio):
    client, (_, audio) = with_audio.play(headers={"Range": "npt=1-6", "Speed": "4"})
    steps = {round(b - a, 4) for a, b in zip(audio, audio[1:]) if b != a}
    assert len(steps) == 1, "one block after the other"
    assert steps.pop() == pytest.approx(1024 / 8000, abs=0.0005)


def test_a_seek_takes_both_tracks_along(with_audio, transport):
    client, (video, audio) = with_audio.play(transport, {"Range": "npt=4.3-", "Speed": "4"})
    begin = npt(client.answer)[0]
    assert 3.2 < begin <= 4.3
    assert min(video) == pytest.approx(begin, abs=0.002)
    assert begin - 0.01 <= min(audio) < begin + 0.15


def test_twice_as_fast_the_audio_keeps_to_the_frames(with_audio):
    client, (video, audio) = with_audio.play(headers={"Scale": "2"})
    assert len(client.packets(1)) > 0
    # Time stamps are those of the scaled presentation: half as long.
    end = npt(client.answer)[1]
    assert video[-1] == pytest.approx(end / 2, abs=0.2)
    assert audio[-1] == pytest.approx(end / 2, abs=0.3)


def test_faster_than_that_there_is_no_audio(with_audio):
    client, (video, audio) = with_audio.play(headers={"Scale": "4"})
    assert audio == []
    assert len(with_audio.film.frames(client.packets(0))) == pytest.approx(SECONDS * RATE, abs=RATE + 1)
    assert sorted(byes(client)) == [0, 1]
