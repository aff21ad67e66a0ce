/**
 * Which date is where on a recording's timeline of media. The server says it for each contiguous range: from its begin on,
 * a second of media is a second of recording, backwards too. Dates are ms since 1970, places are seconds.
 */
export class RecordedTime {
  constructor() {
    /** @type {{date: number, media: number}[]} */
    this.ranges = [];
    this.direction = 1;
  }

  /** Adds a message of the type "range". */
  add({ date, media, direction }) {
    this.direction = direction;
    this.ranges.push({ date: Date.parse(date), media });
  }

  /**
   * Where a date is, in the last range that began at it or before it.
   * @param {number} date
   * @returns {number|null}  null in front of the first range
   */
  mediaAt(date) {
    const range = this.ranges.findLast((each) => this.#since(each.date, date) >= 0);
    return range === undefined ? null : range.media + this.#since(range.date, date) / 1000;
  }

  /**
   * @param {number} media
   * @returns {number|null}  null in front of the first range
   */
  dateAt(media) {
    const range = this.ranges.findLast((each) => each.media <= media);
    return range === undefined ? null : range.date + (media - range.media) * 1000 * this.direction;
  }

  /**
   * The next range behind a date, as far as it is known.
   * @returns {number|null}  its first date
   */
  nextAfter(date) {
    return this.ranges.find((each) => this.#since(each.date, date) < 0)?.date ?? null;
  }

  #since(from, to) {
    return (to - from) * this.direction;
  }
}

/** How a recording is sent: what plays alike need not be asked for again. */
export function sending(speed) {
  if (speed < 0) {
    return `backwards ${speed}`;
  }
  return speed > 4 ? `key frames ${speed}` : 'all frames';
}

/**
 * What holds a place of buffered media.
 * @param {{length: number, start: (i: number) => number, end: (i: number) => number}} buffered
 * @param {number} media
 * @param {number} [tolerance]  seconds in front of what is buffered that count as in it
 */
export function isBuffered(buffered, media, tolerance = 0.05) {
  for (let i = 0; i < buffered.length; ++i) {
    if (buffered.start(i) - tolerance <= media && media < buffered.end(i)) {
      return true;
    }
  }
  return false;
}
