import assert from 'node:assert/strict';
import test from 'node:test';

import { LiveEdge } from '../../web/js/live-edge.js';

test('at its reserve it plays at normal speed', () => {
  const edge = new LiveEdge({ reserve: 0.1 });
  assert.deepEqual(edge.advise(10, 10.1, 0), { rate: 1, seekTo: null });
  assert.deepEqual(edge.advise(10, 10.12, 0), { rate: 1, seekTo: null });
});

test('a little behind it hurries, a little ahead it waits, within what nobody hears', () => {
  const edge = new LiveEdge({ reserve: 0.1 });
  const { rate: faster } = edge.advise(10, 10.25, 0);
  assert.ok(faster > 1 && faster <= LiveEdge.fastest);
  assert.equal(edge.advise(10, 10.9, 0).rate, LiveEdge.fastest);
  const { rate: slower } = edge.advise(10, 10.02, 0);
  assert.ok(slower < 1 && slower >= LiveEdge.slowest);
  assert.equal(edge.advise(10, 10, 0).rate, LiveEdge.slowest);
});

test('more than a second behind it jumps to its reserve', () => {
  const edge = new LiveEdge({ reserve: 0.1 });
  assert.deepEqual(edge.advise(10, 11.5, 0), { rate: 1, seekTo: 11.4 });
  assert.equal(edge.advise(10, 11, 0).seekTo, null);
});

test('a position behind the end of what is buffered is mended by a jump', () => {
  const edge = new LiveEdge({ reserve: 0.1 });
  assert.equal(edge.advise(12, 11, 0).seekTo, 10.9);
  assert.equal(edge.advise(1, 0.05, 0).seekTo, 0, 'never before the start');
});

test('stalls let the reserve grow to a bound, and calm shrinks it again', () => {
  const edge = new LiveEdge({ reserve: 0.1, maxReserve: 0.3 });
  for (let i = 0; i < 10; ++i) {
    edge.stalled();
  }
  assert.equal(edge.reserve, 0.3);
  for (let now = 0; now <= 300; ++now) {
    edge.advise(10, 10.1, now);
  }
  assert.equal(edge.reserve, 0.1);
});

test('with media that comes in time it converges to its reserve from either side', () => {
  for (const start of [0.02, 0.9]) {
    const edge = new LiveEdge({ reserve: 0.12 });
    let position = 0;
    let behind = start;
    for (let now = 0; now < 60; now += 0.1) {
      const { rate, seekTo } = edge.advise(position, position + behind, now);
      assert.equal(seekTo, null);
      position += 0.1 * rate;
      behind -= 0.1 * (rate - 1);
    }
    assert.ok(Math.abs(behind - 0.12) < 0.04, `${behind}`);
  }
});
