import assert from 'node:assert/strict';
import test from 'node:test';

import { PlayClock, steer } from '../../web/js/play-clock.js';

const ready = { state: 'ready', resumes: null };
const loading = { state: 'loading', resumes: null };
const gap = (resumes) => ({ state: 'gap', resumes });
const over = { state: 'end', resumes: null };

function playing(speed = 1) {
  const clock = new PlayClock(100000);
  clock.speed = speed;
  clock.playing = true;
  clock.advance(0, [ready]);
  return clock;
}

test('it goes by the steady clock, times the speed', () => {
  for (const speed of [0.25, 1, 16, -2]) {
    const clock = playing(speed);
    assert.equal(clock.advance(50, [ready, ready]), 'playing');
    assert.equal(clock.date, 100000 + 50 * speed);
  }
});

test('one that loads holds all of them, and no time is lost', () => {
  const clock = playing();
  assert.equal(clock.advance(50, [ready, loading]), 'waiting');
  assert.equal(clock.advance(5000, [ready, loading]), 'waiting');
  assert.equal(clock.date, 100000);
  assert.equal(clock.advance(5050, [ready, ready]), 'playing');
  assert.equal(clock.date, 100050);
});

test('a gap of some does not hold the others', () => {
  const clock = playing();
  assert.equal(clock.advance(50, [ready, gap(200000), over]), 'playing');
  assert.equal(clock.date, 100050);
});

test('a gap of all is leapt over to the nearest recording', () => {
  const forward = playing();
  forward.advance(50, [gap(300000), gap(200000), over]);
  assert.equal(forward.date, 200000);
  const backward = playing(-1);
  backward.advance(50, [gap(30000), gap(50000)]);
  assert.equal(backward.date, 50000);
});

test('it ends where nothing follows', () => {
  assert.equal(playing().advance(50, [over, over]), 'ended');
});

test('paused, it stays, and shows what is nearest', () => {
  const clock = new PlayClock(100000);
  assert.equal(clock.advance(0, [ready]), 'paused');
  assert.equal(clock.advance(500, [ready]), 'paused');
  assert.equal(clock.date, 100000);
  clock.advance(600, [gap(150000)]);
  assert.equal(clock.date, 150000);
});

test('a page that slept does not leap, nor does a seek', () => {
  const clock = playing();
  clock.advance(3600000, [ready]);
  assert.equal(clock.date, 101000);
  clock.set(500000);
  clock.advance(3700000, [ready]);
  assert.equal(clock.date, 500000);
});

test('a video that is a little off is played faster or slower', () => {
  assert.deepEqual(steer(10, 10.01, 1), { rate: 1, seekTo: null });
  const late = steer(10, 10.2, 1);
  assert.ok(late.rate > 1 && late.rate <= 1.1 && late.seekTo === null);
  const early = steer(10, 9.8, 2);
  assert.ok(early.rate < 2 && early.rate >= 1.8);
});

test('a video that is far off jumps', () => {
  assert.equal(steer(10, 11, 1).seekTo, 11);
  assert.equal(steer(10, 9, 1).seekTo, 9);
  assert.equal(steer(10, 14, 16).seekTo, null, 'at 16 times it is a quarter of a second');
});

test('browsers play at 16 times at most', () => {
  assert.equal(steer(10, 13, 16).rate, 16);
});

test('videos converge to the clock', () => {
  for (const off of [-0.35, 0.35]) {
    let position = 0;
    for (let time = 0; time < 10; time += 0.05) {
      const { rate, seekTo } = steer(position + off, time, 1);
      position = seekTo === null ? position + 0.05 * rate : seekTo - off;
    }
    assert.ok(Math.abs(position + off - 10) < 0.06);
  }
});
