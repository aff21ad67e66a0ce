/**
 * The one clock by which several recordings play in step: the date that is shown. It waits for those that load, lets those
 * without a recording at its date be, and leaps over what none of them has.
 */
export class PlayClock {
  /** @param {number} date  ms since 1970 */
  constructor(date) {
    this.date = date;
    this.speed = 1;
    this.playing = false;
    this.last = null;
  }

  /** Goes to a date. */
  set(date) {
    this.date = date;
    this.last = null;
  }

  /**
   * Lets time pass.
   * @param {number} now  ms of any steady clock
   * @param {{state: 'ready'|'loading'|'gap'|'end', resumes: number|null}[]} players  what they have at the clock's date;
   *     `resumes`: the next date that they have, where it is known
   * @returns {'playing'|'waiting'|'paused'|'ended'}
   */
  advance(now, players) {
    const elapsed = this.last === null ? 0 : now - this.last;
    this.last = now;
    if (players.length === 0 || players.some(({ state }) => state === 'loading')) {
      return this.playing ? 'waiting' : 'paused';
    }
    if (players.every(({ state }) => state !== 'ready')) {
      const resumes = players.map((player) => player.resumes).filter((date) => date !== null);
      if (resumes.length === 0) {
        return 'ended';
      }
      this.date = this.speed < 0 ? Math.max(...resumes) : Math.min(...resumes);
      return this.playing ? 'waiting' : 'paused';
    }
    if (!this.playing) {
      return 'paused';
    }
    // A page that slept does not leap.
    this.date += Math.min(elapsed, 1000) * this.speed;
    return 'playing';
  }
}

/**
 * How a video is kept at the clock.
 * @param {number} position  where it is, seconds of media
 * @param {number} target  where it should be
 * @param {number} speed  of the clock, without its sign
 * @returns {{rate: number, seekTo: number|null}}  `seekTo` is null unless it must jump
 */
export function steer(position, target, speed) {
  const behind = target - position;
  if (Math.abs(behind) > 0.4 * Math.max(1, speed)) {
    return { rate: speed, seekTo: target };
  }
  const correction = Math.abs(behind) < 0.03 * Math.max(1, speed) ? 0 : Math.max(-0.1, Math.min(0.1, behind / speed));
  return { rate: Math.min(16, Math.max(0.0625, speed * (1 + correction))), seekTo: null };
}
