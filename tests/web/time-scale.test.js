import assert from 'node:assert/strict';
import test from 'node:test';

process.env.TZ = 'Europe/Berlin';
const { TimeScale, day, hour, label, longest, minute, playable, second, shortest } =
  await import('../../web/js/time-scale.js');

const noon = new Date(2026, 5, 15, 12, 0, 0).getTime();

test('places and instants are each other\'s inverse', () => {
  const scale = new TimeScale(noon, hour, 800);
  assert.equal(scale.xOf(noon), 0);
  assert.equal(scale.xOf(noon + hour), 800);
  for (const x of [0, 1, 399.5, 800, -20]) {
    assert.ok(Math.abs(scale.xOf(scale.timeAt(x)) - x) < 1e-6);
  }
});

test('zooming keeps the instant under the pointer', () => {
  const scale = new TimeScale(noon, hour, 800);
  const time = scale.timeAt(200);
  for (const factor of [0.5, 2, 0.1]) {
    assert.ok(Math.abs(scale.zoomed(factor, 200).timeAt(200) - time) < 1);
  }
});

test('zoom ends at five seconds and at a year', () => {
  const scale = new TimeScale(noon, hour, 800);
  assert.equal(scale.zoomed(1e-9, 0).length, shortest);
  assert.equal(scale.zoomed(1e9, 0).length, longest);
  const closest = scale.zoomed(1e-9, 400);
  assert.ok(Math.abs(closest.timeAt(400) - scale.timeAt(400)) < 1, 'the pointer holds at the end, too');
});

test('dragging moves what is under the pointer with it', () => {
  const scale = new TimeScale(noon, hour, 600);
  const time = scale.timeAt(100);
  assert.ok(Math.abs(scale.moved(50).timeAt(150) - time) < 1);
});

test('an instant out of sight is brought into sight, one in sight moves nothing', () => {
  const scale = new TimeScale(noon, hour, 600);
  assert.equal(scale.showing(noon + hour / 2), scale);
  for (const time of [noon - day, noon + day]) {
    const moved = scale.showing(time);
    assert.ok(moved.from <= time && time <= moved.to);
    assert.equal(moved.length, scale.length);
  }
});

test('labels stand at round times, apart enough, for every zoom', () => {
  for (let length = shortest; length <= longest; length *= 1.37) {
    const ticks = new TimeScale(noon + 12345, length, 900).ticks(90);
    assert.ok(ticks.length <= 12, `${ticks.length} labels for ${length} ms`);
    for (let i = 1; i < ticks.length; ++i) {
      assert.ok(ticks[i].x - ticks[i - 1].x >= 85, `${length}: ${ticks[i].x - ticks[i - 1].x}`);
    }
    for (const { time, step } of ticks) {
      const date = new Date(time);
      assert.equal(date.getMilliseconds(), 0);
      if (step >= minute) assert.equal(date.getSeconds(), 0);
      if (step >= hour) assert.equal(date.getMinutes(), 0);
      if (step >= day) assert.equal(date.getHours(), 0);
    }
  }
});

test('days of 23 and 25 hours begin at midnight', () => {
  for (const start of [new Date(2026, 2, 27), new Date(2026, 9, 23)]) {
    const ticks = new TimeScale(start.getTime(), 6 * day, 900).ticks(90);
    assert.ok(ticks.length >= 5);
    assert.ok(ticks.every(({ time }) => new Date(time).getHours() === 0));
  }
});

test('labels say what their step needs', () => {
  assert.equal(label(noon, second), '12:00:00');
  assert.equal(label(noon, minute), '12:00');
  assert.equal(label(noon - 12 * hour, hour), '2026-06-15', 'midnight is the date');
  assert.equal(label(noon - 12 * hour, day), '2026-06-15');
});

test('ranges become spans: cut at the edges, joined where they touch, never invisible', () => {
  const scale = new TimeScale(0, 1000 * second, 1000);
  const range = (start, end) => ({ start: start * second, end: end * second });
  assert.deepEqual(scale.spans([range(-10, 10), range(990, 2000)]), [{ x: 0, width: 10 }, { x: 990, width: 10 }]);
  assert.deepEqual(scale.spans([range(10, 10.01)]), [{ x: 10, width: 1 }]);
  assert.deepEqual(scale.spans([range(10, 20), range(20, 30), range(40, 50)]),
    [{ x: 10, width: 20 }, { x: 40, width: 10 }]);
  assert.deepEqual(scale.spans([range(-20, -10), range(1000, 1010)]), []);
});

test('a hundred thousand ranges become no more spans than pixels', () => {
  const scale = new TimeScale(0, 1000 * second, 500);
  const ranges = Array.from({ length: 100000 }, (_, i) => ({ start: i * 10, end: i * 10 + 5 }));
  assert.ok(scale.spans(ranges).length <= 500);
});

test('in a gap the next range plays', () => {
  const ranges = [{ start: 10, end: 20 }, { start: 30, end: 40 }];
  assert.equal(playable(ranges, 15), 15);
  assert.equal(playable(ranges, 5), 10);
  assert.equal(playable(ranges, 20), 30);
  assert.equal(playable(ranges, 40), null);
  assert.equal(playable([], 1), null);
});
