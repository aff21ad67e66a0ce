import assert from 'node:assert/strict';
import test from 'node:test';

import { Downsampler } from '../../web/js/downsampler.js';
import { encode, encodeSample } from '../../web/js/pcmu.js';
import { Talk } from '../../web/js/talk.js';

/** What a byte of PCMU stands for, as the standard's decoder has it. */
function decode(byte) {
  const bits = ~byte & 0xff;
  const magnitude = (((bits & 0x0f) << 3) + 132 << (bits >> 4 & 7)) - 132;
  return (bits & 0x80 ? -magnitude : magnitude) / 32768;
}

test('mu-law has the standard\'s values', () => {
  assert.deepEqual([0, 1, -1, 0.5, -0.5, 100, -100].map(encodeSample), [0xff, 0x80, 0x00, 0x8f, 0x0f, 0x80, 0x00]);
});

test('mu-law keeps every sample within a step', () => {
  for (let sample = -32600; sample <= 32600; sample += 7) {
    const error = Math.abs(decode(encodeSample(sample / 32768)) * 32768 - sample);
    assert.ok(error <= (Math.abs(sample) + 132) / 32 + 1, `${sample}: ${error}`);
  }
});

function tone(hertz, rate, count, level = 0.5) {
  return Float32Array.from({ length: count }, (_, i) => level * Math.sin((2 * Math.PI * hertz * i) / rate));
}

function power(samples) {
  return samples.reduce((sum, sample) => sum + sample * sample, 0) / samples.length;
}

/** In blocks, as an audio thread brings it. */
function downsampled(input, rate, block = 128) {
  const downsampler = new Downsampler(rate, 8000);
  const output = [];
  for (let at = 0; at < input.length; at += block) {
    output.push(...downsampler.add(input.subarray(at, at + block)));
  }
  return output;
}

for (const rate of [8000, 16000, 44100, 48000, 96000]) {
  test(`speech passes from ${rate} Hz, and there is as much as before`, () => {
    for (const hertz of [200, 1000, 3000]) {
      const output = downsampled(tone(hertz, rate, rate), rate);
      assert.ok(Math.abs(output.length - 8000) < 60, `${output.length} samples`);
      const level = 10 * Math.log10(power(output.slice(500, 7500)) / 0.125);
      assert.ok(Math.abs(level) < 0.6, `${hertz} Hz: ${level} dB`);
    }
  });
}

test('what 8 kHz cannot carry does not come back as another tone', () => {
  for (const hertz of [4600, 5000, 7000, 9000, 15000]) {
    const output = downsampled(tone(hertz, 48000, 48000), 48000);
    const level = 10 * Math.log10(power(output.slice(500, 7500)) / 0.125);
    assert.ok(level < -50, `${hertz} Hz: ${level} dB`);
  }
});

test('blocks of any size make the same samples', () => {
  const input = tone(700, 44100, 5000);
  const whole = downsampled(input, 44100, 5000);
  for (const block of [1, 7, 128, 1000]) {
    assert.deepEqual(downsampled(input, 44100, block).map((x) => x.toFixed(6)), whole.map((x) => x.toFixed(6)));
  }
});

class FakeMicrophone extends EventTarget {
  async open() {
    if (this.refused) {
      throw new Error('refused');
    }
  }

  close() {}

  hear(byte) {
    this.dispatchEvent(new CustomEvent('block', { detail: { audio: byte, level: 0 } }));
  }
}

class FakeSocket extends EventTarget {
  constructor() {
    super();
    this.readyState = 0;
    this.bufferedAmount = 0;
    this.sent = [];
  }

  open() {
    this.readyState = 1;
    this.dispatchEvent(new Event('open'));
  }

  send(bytes) {
    this.sent.push(bytes);
  }

  say(message) {
    this.dispatchEvent(Object.assign(new Event('message'), { data: JSON.stringify(message) }));
  }

  close() {
    this.closed = true;
    this.dispatchEvent(new Event('close'));
  }
}

function scene() {
  const microphone = new FakeMicrophone();
  const sockets = [];
  const talk = new Talk('ws://x/', { microphone, connect: () => sockets[sockets.push(new FakeSocket()) - 1] });
  return { microphone, sockets, talk };
}

test('what is said while the connection opens is kept, in order', async () => {
  const { microphone, sockets, talk } = scene();
  await talk.start();
  microphone.hear(1);
  microphone.hear(2);
  assert.deepEqual(sockets[0].sent, []);
  sockets[0].open();
  microphone.hear(3);
  assert.deepEqual(sockets[0].sent, [1, 2, 3]);
});

test('nothing is sent after the release', async () => {
  const { microphone, sockets, talk } = scene();
  await talk.start();
  sockets[0].open();
  talk.stop();
  microphone.hear(1);
  assert.deepEqual(sockets[0].sent, []);
  assert.ok(sockets[0].closed);
  assert.equal(talk.state, 'idle');
});

test('a release before the microphone is there connects nothing', async () => {
  const { sockets, talk } = scene();
  const starting = talk.start();
  talk.stop();
  await starting;
  assert.equal(sockets.length, 0);
});

test('what waits is bounded', async () => {
  const { microphone, sockets, talk } = scene();
  await talk.start();
  for (let i = 0; i < 1000; ++i) {
    microphone.hear(i);
  }
  sockets[0].open();
  assert.equal(sockets[0].sent.length, Talk.maxWaiting);
  assert.equal(sockets[0].sent.at(-1), 999);
  sockets[0].bufferedAmount = Talk.maxUnsent + 1;
  microphone.hear(1000);
  assert.equal(sockets[0].sent.at(-1), 999);
  assert.equal(talk.dropped, 951);
});

test('the state says who is audible', async () => {
  const { sockets, talk } = scene();
  await talk.start();
  assert.equal(talk.state, 'opening');
  sockets[0].open();
  sockets[0].say({ type: 'floor', audible: false, by: 'anna' });
  assert.deepEqual([talk.state, talk.by], ['waiting', 'anna']);
  sockets[0].say({ type: 'floor', audible: true, by: null });
  assert.deepEqual([talk.state, talk.by], ['audible', '']);
});

test('a refusal is displayed, also after the release, until the next hold', async () => {
  const { sockets, talk } = scene();
  await talk.start();
  sockets[0].open();
  sockets[0].say({ type: 'refused', detail: 'Somebody else talks.' });
  assert.deepEqual([talk.state, talk.detail, talk.held], ['failed', 'Somebody else talks.', false]);
  talk.stop();
  assert.equal(talk.state, 'failed');
  await talk.start();
  assert.equal(talk.state, 'opening');
});

test('without a microphone it says so', async () => {
  const { microphone, sockets, talk } = scene();
  microphone.refused = true;
  await talk.start();
  assert.equal(talk.state, 'failed');
  assert.equal(sockets.length, 0);
  assert.ok(encode(new Float32Array(160)).every((byte) => byte === 0xff));
});
