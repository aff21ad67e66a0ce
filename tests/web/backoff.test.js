import assert from 'node:assert/strict';
import test from 'node:test';

import { Backoff } from '../../web/js/backoff.js';

test('pauses double up to the longest', () => {
  const backoff = new Backoff({ first: 100, longest: 1000, random: () => 1 });
  assert.deepEqual([1, 2, 3, 4, 5, 6].map(() => backoff.next()), [100, 200, 400, 800, 1000, 1000]);
});

test('half of a pause is left to chance', () => {
  assert.equal(new Backoff({ first: 100, random: () => 0 }).next(), 50);
  assert.equal(new Backoff({ first: 100, random: () => 0.5 }).next(), 75);
});

test('success starts over', () => {
  const backoff = new Backoff({ first: 100, random: () => 1 });
  backoff.next();
  backoff.next();
  backoff.reset();
  assert.equal(backoff.next(), 100);
});

test('a thousand attempts do not leave the numbers', () => {
  const backoff = new Backoff({ random: () => 1 });
  for (let i = 0; i < 1000; ++i) {
    assert.ok(backoff.next() <= 15000);
  }
});
