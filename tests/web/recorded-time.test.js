import assert from 'node:assert/strict';
import test from 'node:test';

import { RecordedTime, isBuffered, sending } from '../../web/js/recorded-time.js';

const noon = Date.parse('2026-06-15T12:00:00Z');
const range = (seconds, media, direction = 1) =>
  ({ date: new Date(noon + seconds * 1000).toISOString(), media, direction });

test('a second of media is a second of the recording', () => {
  const time = new RecordedTime();
  assert.equal(time.mediaAt(noon), null);
  assert.equal(time.dateAt(10), null);
  time.add(range(0, 10));
  assert.equal(time.mediaAt(noon + 2500), 12.5);
  assert.equal(time.dateAt(12.5), noon + 2500);
  assert.equal(time.mediaAt(noon - 1), null);
});

test('behind a gap the next range holds', () => {
  const time = new RecordedTime();
  time.add(range(0, 10));
  time.add(range(60, 70));
  assert.equal(time.mediaAt(noon + 61000), 71);
  assert.equal(time.nextAfter(noon + 5000), noon + 60000);
  assert.equal(time.nextAfter(noon + 60000), null);
});

test('backwards, places grow while dates fall', () => {
  const time = new RecordedTime();
  time.add(range(0, 10, -1));
  time.add(range(-60, 70, -1));
  assert.equal(time.mediaAt(noon - 3000), 13);
  assert.equal(time.dateAt(13), noon - 3000);
  assert.equal(time.nextAfter(noon - 3000), noon - 60000);
  assert.equal(time.dateAt(75), noon - 65000);
  assert.equal(time.mediaAt(noon + 1), null);
});

test('where the clock was set back the later range holds the date', () => {
  const time = new RecordedTime();
  time.add(range(0, 10));
  time.add(range(-30, 100));
  assert.equal(time.mediaAt(noon + 1000), 131);
  assert.equal(time.dateAt(99), noon + 89000);
  assert.equal(time.dateAt(101), noon - 29000);
});

test('what is sent alike need not be asked for again', () => {
  assert.equal(sending(0.25), sending(4));
  assert.notEqual(sending(4), sending(8));
  assert.notEqual(sending(8), sending(16));
  assert.notEqual(sending(1), sending(-1));
});

test('a place is buffered inside a span, and a little in front of it', () => {
  const spans = [[1, 2], [5, 6]];
  const buffered = { length: 2, start: (i) => spans[i][0], end: (i) => spans[i][1] };
  assert.deepEqual([0.9, 0.96, 1.5, 2, 4.96, 6].map((media) => isBuffered(buffered, media)),
    [false, true, true, false, true, false]);
});
