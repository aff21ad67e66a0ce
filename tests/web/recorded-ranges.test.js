import assert from 'node:assert/strict';
import test from 'node:test';

import { durationText, exportPath, fileName, merged, nextBegin, rangesOf } from '../../web/js/recorded-ranges.js';

const range = (start, end) => ({ start, end });

test('ranges are read in order, whatever the order of the list', () => {
  assert.deepEqual(rangesOf({ ranges: [
    { start: '2026-01-01T00:00:10Z', end: '2026-01-01T00:00:20.5Z' },
    { start: '2026-01-01T00:00:00Z', end: '2026-01-01T00:00:05Z' }] }),
  [range(1767225600000, 1767225605000), range(1767225610000, 1767225620500)]);
});

test('what was asked for again replaces what was known', () => {
  const known = [range(0, 100), range(200, 300)];
  assert.deepEqual(merged(known, [range(200, 350)], 250), [range(0, 100), range(200, 350)]);
  assert.deepEqual(merged(known, [range(400, 450)], 350), [range(0, 100), range(200, 300), range(400, 450)]);
  assert.deepEqual(merged(known, [], 250), [range(0, 100), range(200, 250)], 'what is gone is gone');
  assert.deepEqual(merged([], [range(1, 2)], 0), [range(1, 2)]);
});

test('overlaps are one range', () => {
  assert.deepEqual(merged([], [range(0, 10), range(5, 20), range(20, 30), range(40, 50)], 0),
    [range(0, 30), range(40, 50)]);
});

test('from recording to recording, of any of the cameras', () => {
  const rows = [[range(0, 10000), range(50000, 60000)], [range(30000, 70000)]];
  assert.equal(nextBegin(rows, 5000, 1), 30000);
  assert.equal(nextBegin(rows, 55000, 1), null);
  assert.equal(nextBegin(rows, 55000, -1), 50000);
  assert.equal(nextBegin(rows, 50500, -1), 30000, 'pressed again right away, it goes further back');
  assert.equal(nextBegin(rows, 500, -1), 0);
  assert.equal(nextBegin(rows, 0, -1), null);
  assert.equal(nextBegin([[]], 0, 1), null);
});

test('the address of an export has milliseconds', () => {
  assert.equal(exportPath(3, 1, 1767225600123.4, 1767225610000),
    '/api/v1/recordings/3/export.mp4?start=1767225600.123&end=1767225610.000&stream=1');
});

test('names become names of files', () => {
  assert.equal(fileName('Parcel at 12:30, “left” door'), 'Parcel at 12 30, “left” door');
  assert.equal(fileName('../../etc/passwd'), 'etc passwd');
  assert.equal(fileName('a\u0000b\nc'), 'a b c');
  assert.equal(fileName('   '), '');
  assert.equal(fileName('x'.repeat(300)).length, 100);
});

test('durations are read easily', () => {
  assert.deepEqual([0, 999, 65000, 600000, 7205000].map(durationText), ['0:00', '0:01', '1:05', '10:00', '2:00:05']);
});
