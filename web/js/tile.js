import { liveUrl } from './api.js';
import { element } from './elements.js';
import { LivePlayer, SeenPlayback } from './live-player.js';

const hints = {
  stopped: '',
  connecting: 'Connecting…',
  playing: '',
  waiting: 'No picture: trying again…',
  unsupported: 'This browser cannot show this stream.',
  refused: 'You may not watch this camera.',
};

/** A camera stream's live picture with its name and, on demand, its figures. */
export class Tile {
  /**
   * @param {{id: number, name: string}} camera
   * @param {number} stream
   * @param {object} [options]
   * @param {string|null} [options.href]  where a click leads
   * @param {boolean} [options.audio]  whether sound is asked for; it begins muted all the same
   */
  constructor(camera, stream, { href = null, audio = false } = {}) {
    this.video = element('video', { muted: true, autoplay: true, playsinline: '', tabindex: '-1',
      'aria-label': `Live picture of ${camera.name}` });
    this.hint = element('p', { class: 'hint', role: 'status' });
    this.figures = element('span', { class: 'figures' });
    this.element = element('figure', { class: 'tile', 'data-camera': camera.id, 'data-stream': stream },
      this.video,
      this.hint,
      element('figcaption', {}, element('span', {}, camera.name), this.figures),
      href === null ? null : element('a', { href, 'aria-label': `Enlarge ${camera.name}` }));
    this.player = new LivePlayer(this.video, liveUrl(camera.id, stream, { audio }));
    this.player.addEventListener('state', ({ detail }) => this.#show(detail.state));
    this.playback = new SeenPlayback(this.player, this.element);
    this.#show(this.player.state);
  }

  /** Shows latency, bit rate and frame rate, or hides them. */
  showFigures(shown) {
    clearInterval(this.timer);
    this.figures.textContent = '';
    if (!shown) {
      return;
    }
    let before = { ...this.player.counted, frames: this.#frames(), time: performance.now() };
    this.timer = setInterval(() => {
      const now = { ...this.player.counted, frames: this.#frames(), time: performance.now() };
      const seconds = (now.time - before.time) / 1000;
      const rate = ((now.bytes - before.bytes) * 8) / seconds / 1e6;
      const frames = (now.frames - before.frames) / seconds;
      const latency = this.player.latency;
      this.figures.textContent = [
        latency === null ? '' : `${Math.round(latency)} ms`,
        `${rate.toFixed(2)} Mbit/s`,
        `${frames.toFixed(0)} fps`,
      ].filter(Boolean).join(' · ');
      before = now;
    }, 1000);
  }

  end() {
    clearInterval(this.timer);
    this.playback.end();
  }

  #frames() {
    return this.video.getVideoPlaybackQuality?.().totalVideoFrames ?? 0;
  }

  #show(state) {
    this.element.dataset.state = state;
    this.hint.textContent = hints[state];
  }
}
