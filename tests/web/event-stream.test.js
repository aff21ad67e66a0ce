import assert from 'node:assert/strict';
import test from 'node:test';

import { EventParser } from '../../web/js/event-stream.js';

const text = 'event: session-started\ndata: {"a":1}\n\n:\n\nevent: lost\ndata: {"count":2}\n\n';
const events = [{ name: 'session-started', data: '{"a":1}' }, { name: 'lost', data: '{"count":2}' }];

test('events are split at empty lines, and comments are none', () => {
  assert.deepEqual(new EventParser().add(text), events);
});

test('blocks of any size make the same events', () => {
  for (let size = 1; size <= text.length; ++size) {
    const parser = new EventParser();
    const came = [];
    for (let at = 0; at < text.length; at += size) {
      came.push(...parser.add(text.slice(at, at + size)));
    }
    assert.deepEqual(came, events, `blocks of ${size}`);
  }
});

test('an event of several lines is one text', () => {
  assert.deepEqual(new EventParser().add('data: a\ndata:b\n\n'), [{ name: 'message', data: 'a\nb' }]);
});

test('an event without end is not kept', () => {
  const parser = new EventParser();
  assert.throws(() => {
    for (let i = 0; i <= EventParser.maxWaiting / 1000; ++i) {
      parser.add('x'.repeat(1000));
    }
  }, RangeError);
});
