"""A recording with a gap in it plays over the gap, and says so."""

import itertools
import math
import time

import pytest
import recordings
from frames import RATE
from recordings import finish, npt
from rtsp_client import RtspClient, assert_no_gap
from server import Server
from test_playback_replay import REPLAY, stamp

PERIOD = 90000 // RATE
FAST = {**REPLAY, "Rate-Control": "no"}


class Gap:
    """Recorded, ended, some seconds of nothing, recorded again; the film starts again each time."""

    def __init__(self, binary, folder, film):
        text = recordings.config(film, folder / "recordings")
        first = Server(binary, folder / "first", text)
        try:
            before = recordings.record(first, 3)
            first.stop()
        finally:
            first.kill()
        time.sleep(3)  # the gap itself
        self.server = Server(binary, folder / "second", text)
        after = recordings.record(self.server, 3)
        self.film = film
        self.begin, self.end = before.begin, after.end
        self.url = recordings.url(self.server, self.begin, self.end)


@pytest.fixture(scope="module")
def gap(build_folder, tmp_path_factory):
    made = Gap(build_folder / "ovrtspd", tmp_path_factory.mktemp("gap"), recordings.film(build_folder))
    try:
        yield made
        made.server.stop()
    finally:
        made.server.kill()


def play(gap, headers):
    with RtspClient(gap.url) as client:
        client.describe()
        client.setup_all()
        client.play(headers)
        finish(client)
    return client


def sections(frames):
    """The film's numbers in runs without a gap."""
    cuts = [0, *(i for i in range(1, len(frames)) if frames[i].number != frames[i - 1].number + 1), len(frames)]
    return [frames[a:b] for a, b in itertools.pairwise(cuts)]


def test_playback_continues_after_the_gap(gap):
    started = time.monotonic()
    client = play(gap, {})
    seconds = time.monotonic() - started
    assert_no_gap(client.rtp)
    before, after = sections(gap.film.frames(client.rtp))
    assert len(before) >= 3 * RATE and len(after) >= 3 * RATE
    assert before[0].key and after[0].key
    assert seconds < gap.end - gap.begin, "nobody waits for the gap to pass"
    for section in (before, after):
        assert {b.timestamp - a.timestamp for a, b in itertools.pairwise(section)} == {PERIOD}
    assert (after[0].timestamp - before[-1].timestamp) % 2**32 < 2**31, "time does not go back"


def test_wall_clock_jumps_at_the_gap(gap):
    client = play(gap, FAST)
    before, after = [[stamp(frame) for frame in section] for section in sections(gap.film.frames(client.rtp))]
    assert after[0].time - before[-1].time > 3
    assert before[-1].end and after[0].discontinuity
    assert after[-1].end
    for section in (before, after):
        assert section[-1].time - section[0].time == pytest.approx((len(section) - 1) / RATE, abs=0.01)


def test_a_seek_into_the_gap_plays_what_follows(gap):
    whole = play(gap, FAST)
    before, after = [[stamp(frame) for frame in section] for section in sections(gap.film.frames(whole.rtp))]
    middle = (before[-1].time + after[0].time) / 2 - before[0].time
    client = play(gap, {"Range": f"npt={middle:.3f}-", "Speed": "4"})
    frames = gap.film.frames(client.rtp)
    _, last = sections(gap.film.frames(whole.rtp))
    assert frames[0].number == last[0].number
    assert npt(client.answer)[0] == pytest.approx(after[0].time - before[0].time, abs=0.002)


def test_an_interval_in_the_gap_is_not_found(gap):
    whole = play(gap, FAST)
    before, after = [[stamp(frame) for frame in section] for section in sections(gap.film.frames(whole.rtp))]
    first, last = math.ceil(before[-1].time + 0.1), math.floor(after[0].time)
    assert first < last, (before[-1].time, after[0].time)
    assert recordings.status(gap.server, first, last) == 404
