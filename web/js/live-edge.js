/**
 * Keeps a live picture close to what was captured: slightly faster or slower playback holds a small reserve of
 * buffered media, and a jump makes up for more than that.
 *
 * The reserve grows with each stall, because the network then needs more, and shrinks slowly again.
 */
export class LiveEdge {
  static slowest = 0.97;
  static fastest = 1.05;

  /**
   * @param {object} [options]  all in seconds
   * @param {number} [options.reserve]  buffered media to begin with
   * @param {number} [options.maxReserve]  what stalls may let it grow to
   * @param {number} [options.maxBehind]  further behind, playback jumps
   */
  constructor({ reserve = 0.12, maxReserve = 0.6, maxBehind = 1 } = {}) {
    this.minReserve = reserve;
    this.maxReserve = Math.max(reserve, maxReserve);
    this.maxBehind = maxBehind;
    this.reserve = reserve;
    this.calmSince = null;
  }

  /** Playback had to wait for media. */
  stalled() {
    this.reserve = Math.min(this.maxReserve, this.reserve + 0.06);
    this.calmSince = null;
  }

  /**
   * What to do now.
   * @param {number} position  where playback is, seconds of the media
   * @param {number} end  where the buffered media ends
   * @param {number} now  seconds of any steady clock
   * @returns {{rate: number, seekTo: number|null}}  `seekTo` is null unless playback must jump
   */
  advise(position, end, now) {
    this.#calm(now);
    const behind = end - position;
    if (behind > this.maxBehind || behind < 0) {
      return { rate: 1, seekTo: Math.max(0, end - this.reserve) };
    }
    const excess = behind - this.reserve;
    if (Math.abs(excess) < 0.03) {
      return { rate: 1, seekTo: null };
    }
    const rate = 1 + excess * 0.4;
    return { rate: Math.min(LiveEdge.fastest, Math.max(LiveEdge.slowest, rate)), seekTo: null };
  }

  #calm(now) {
    this.calmSince ??= now;
    if (now - this.calmSince >= 10) {
      this.reserve = Math.max(this.minReserve, this.reserve - 0.02);
      this.calmSince = now;
    }
  }
}
