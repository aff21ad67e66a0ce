/**
 * Growing pauses between attempts, with a random part, so that pages that lost their server at once do not all come
 * back at once.
 */
export class Backoff {
  /**
   * @param {object} [options]
   * @param {number} [options.first]  ms
   * @param {number} [options.longest]  ms
   * @param {() => number} [options.random]  from 0 to 1
   */
  constructor({ first = 300, longest = 15000, random = Math.random } = {}) {
    this.first = first;
    this.longest = longest;
    this.random = random;
    this.attempts = 0;
  }

  /** @returns {number} ms to wait before the next attempt: between half of the pause and all of it */
  next() {
    const pause = Math.min(this.longest, this.first * 2 ** this.attempts);
    this.attempts = Math.min(this.attempts + 1, 30);
    return pause * (0.5 + this.random() / 2);
  }

  /** An attempt succeeded. */
  reset() {
    this.attempts = 0;
  }
}
