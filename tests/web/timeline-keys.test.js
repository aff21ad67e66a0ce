import assert from 'node:assert/strict';
import test from 'node:test';

import { keyAction } from '../../web/js/timeline-keys.js';

const key = (name, shiftKey = false) => ({ key: name, shiftKey });

test('arrows go by a hundredth of what is in sight, with Shift by a tenth, and by a second at least', () => {
  assert.deepEqual(keyAction(key('ArrowRight'), 3600000), { action: 'step', value: 36000 });
  assert.deepEqual(keyAction(key('ArrowLeft', true), 3600000), { action: 'step', value: -360000 });
  assert.deepEqual(keyAction(key('ArrowLeft'), 5000), { action: 'step', value: -1000 });
});

test('every key of the help does something', () => {
  for (const [name, action] of [['PageUp', 'range'], ['PageDown', 'range'], ['+', 'zoom'], ['-', 'zoom'], ['Home', 'first'],
    ['End', 'last'], [' ', 'play'], ['i', 'mark'], ['o', 'mark']]) {
    assert.equal(keyAction(key(name), 1000).action, action);
  }
});

test('other keys, and those of the browser, are left alone', () => {
  assert.equal(keyAction(key('Tab'), 1000), null);
  assert.equal(keyAction(key('x'), 1000), null);
  for (const modifier of ['ctrlKey', 'altKey', 'metaKey']) {
    assert.equal(keyAction({ ...key('ArrowLeft'), [modifier]: true }, 1000), null);
  }
});
