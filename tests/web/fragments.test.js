import assert from 'node:assert/strict';
import test from 'node:test';

import { boxes, captureTime } from '../../web/js/fragments.js';

function box(type, contents) {
  const bytes = new Uint8Array(8 + contents.length);
  new DataView(bytes.buffer).setUint32(0, bytes.length);
  bytes.set([...type].map((letter) => letter.charCodeAt(0)), 4);
  bytes.set(contents, 8);
  return [...bytes];
}

function producerTime(seconds, fraction, media) {
  const contents = new Uint8Array(28);
  const view = new DataView(contents.buffer);
  view.setUint8(0, 1);
  view.setUint32(4, 1);
  view.setUint32(8, seconds + 2208988800);
  view.setUint32(12, fraction);
  view.setBigUint64(16, BigInt(media));
  return box('prft', [...contents]);
}

const buffer = (bytes) => new Uint8Array(bytes).buffer;

test('the boxes at the top are found, and one that is cut is not', () => {
  const bytes = [...box('moof', [1, 2]), ...box('mdat', [3])];
  assert.deepEqual([...boxes(buffer(bytes))].map(({ type }) => type), ['moof', 'mdat']);
  for (let size = 0; size < bytes.length; ++size) {
    const found = [...boxes(buffer(bytes.slice(0, size)))];
    assert.ok(found.length <= 1);
  }
});

test('a box smaller than its own header ends the search', () => {
  assert.deepEqual([...boxes(buffer([0, 0, 0, 7, 1, 2, 3, 4, 5, 6, 7, 8]))], []);
  assert.deepEqual([...boxes(buffer([0, 0, 0, 0, 1, 2, 3, 4]))], []);
});

test('the time of capture is read', () => {
  const fragment = buffer([...producerTime(1700000000, 2 ** 31, 90000 * 5), ...box('moof', [])]);
  assert.deepEqual(captureTime(fragment), { track: 1, wall: 1700000000500, media: 450000 });
});

test('a fragment without it says so', () => {
  assert.equal(captureTime(buffer(box('moof', []))), null);
  assert.equal(captureTime(buffer(box('prft', [1, 2, 3]))), null);
  assert.equal(captureTime(buffer([])), null);
});
