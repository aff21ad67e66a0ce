/**
 * The arithmetic of a timeline: which instant is where, how it is zoomed and moved, and where its labels stand.
 * Instants are ms since 1970, places are pixels from the left edge. Objects do not change; what moves makes a new one.
 */

export const second = 1000;
export const minute = 60 * second;
export const hour = 60 * minute;
export const day = 24 * hour;

export const shortest = 5 * second;
export const longest = 366 * day;

const steps = [
  second, 2 * second, 5 * second, 10 * second, 30 * second,
  minute, 2 * minute, 5 * minute, 10 * minute, 30 * minute,
  hour, 2 * hour, 3 * hour, 6 * hour, 12 * hour,
  day, 2 * day, 7 * day, 14 * day, 30 * day, 61 * day,
];

export class TimeScale {
  /**
   * @param {number} from  the left edge's instant
   * @param {number} length  ms; held between `shortest` and `longest`
   * @param {number} width  pixels
   */
  constructor(from, length, width) {
    this.length = Math.min(longest, Math.max(shortest, length));
    this.from = from;
    this.width = Math.max(1, width);
  }

  get to() {
    return this.from + this.length;
  }

  timeAt(x) {
    return this.from + (x / this.width) * this.length;
  }

  xOf(time) {
    return ((time - this.from) / this.length) * this.width;
  }

  /** The same instants on another width. */
  resized(width) {
    return new TimeScale(this.from, this.length, width);
  }

  /** Moved by pixels: what was at x is then at x + `pixels`. */
  moved(pixels) {
    return new TimeScale(this.from - (pixels / this.width) * this.length, this.length, this.width);
  }

  /** Shows `factor` times as much; the instant at `x` stays there. */
  zoomed(factor, x) {
    const fixed = this.timeAt(x);
    const length = Math.min(longest, Math.max(shortest, this.length * factor));
    return new TimeScale(fixed - (x / this.width) * length, length, this.width);
  }

  /** Shows `time`: moved as little as needed, with a tenth of the width in front of it or behind it. */
  showing(time) {
    const margin = this.length / 10;
    if (time < this.from + margin) {
      return new TimeScale(time - margin, this.length, this.width);
    }
    if (time > this.to - margin) {
      return new TimeScale(time + margin - this.length, this.length, this.width);
    }
    return this;
  }

  /**
   * Where labels stand, at round local times.
   * @param {number} [apart]  pixels between two, at least
   * @returns {{time: number, x: number, step: number}[]}
   */
  ticks(apart = 90) {
    const least = (apart / this.width) * this.length;
    const step = steps.find((candidate) => candidate >= least) ?? steps[steps.length - 1];
    const ticks = [];
    for (let time = firstTick(this.from, step); time <= this.to; time = nextTick(time, step)) {
      ticks.push({ time, x: this.xOf(time), step });
    }
    return ticks;
  }

  /**
   * Ranges as places: only what is visible, joined where they touch on screen, none narrower than a pixel.
   * @param {{start: number, end: number}[]} ranges  in order
   * @returns {{x: number, width: number}[]}
   */
  spans(ranges) {
    const spans = [];
    for (const { start, end } of ranges) {
      if (end <= this.from || start >= this.to) {
        continue;
      }
      const left = Math.max(0, this.xOf(start));
      const right = Math.min(this.width, Math.max(this.xOf(end), left + 1));
      const last = spans[spans.length - 1];
      if (last && left <= last.x + last.width) {
        last.width = Math.max(last.width, right - last.x);
      } else {
        spans.push({ x: left, width: right - left });
      }
    }
    return spans;
  }
}

/** The first round local time of `step` at `from` or later. */
function firstTick(from, step) {
  const date = new Date(from);
  date.setHours(0, 0, 0, 0);
  if (step >= day) {
    while (date.getTime() < from) {
      date.setDate(date.getDate() + 1);
    }
    return date.getTime();
  }
  const midnight = date.getTime();
  return midnight + Math.ceil((from - midnight) / step) * step;
}

/** Days have 23 to 25 hours where clocks are changed: steps of days follow the calendar. */
function nextTick(time, step) {
  if (step < day) {
    return time + step;
  }
  const date = new Date(time);
  date.setDate(date.getDate() + Math.round(step / day));
  return date.getTime();
}

/**
 * What a tick's label says: as much as its step needs.
 * @param {number} time
 * @param {number} step
 * @returns {string}
 */
export function label(time, step) {
  const date = new Date(time);
  const two = (number) => String(number).padStart(2, '0');
  const clock = `${two(date.getHours())}:${two(date.getMinutes())}`;
  if (step < minute) {
    return `${clock}:${two(date.getSeconds())}`;
  }
  if (step < day && (date.getHours() !== 0 || date.getMinutes() !== 0)) {
    return clock;
  }
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
}

/**
 * The instant to play for a wanted one: itself where something was recorded, otherwise where the next range begins.
 * @param {{start: number, end: number}[]} ranges  in order
 * @param {number} time
 * @returns {number|null}  null behind the last range
 */
export function playable(ranges, time) {
  for (const { start, end } of ranges) {
    if (time < end) {
      return Math.max(time, start);
    }
  }
  return null;
}
