import { Backoff } from './backoff.js';
import { captureTime } from './fragments.js';
import { LiveEdge } from './live-edge.js';

/** Telephones of one maker have the second one only. */
const Source = globalThis.MediaSource ?? globalThis.ManagedMediaSource;

/**
 * Plays a live stream in a video element: MP4 fragments from a WebSocket, by Media Source Extensions.
 *
 * A connection that is lost is made again, with growing pauses; so is a picture that stops although the connection
 * stands. Dispatches `state` events when `state` changes.
 */
export class LivePlayer extends EventTarget {
  static silence = 5000; // ms without a fragment after which the connection counts as lost
  static maxWaiting = 16 * 1024 * 1024; // bytes that the browser has not taken yet
  static kept = 8; // seconds of media that are kept behind the position

  /**
   * @param {HTMLVideoElement} video
   * @param {string} url  ws: or wss:
   * @param {object} [options]
   * @param {Backoff} [options.backoff]
   */
  constructor(video, url, { backoff = new Backoff() } = {}) {
    super();
    this.video = video;
    this.video.disableRemotePlayback = true; // ManagedMediaSource demands it
    this.url = url;
    this.backoff = backoff;
    /** @type {'stopped'|'connecting'|'playing'|'waiting'|'unsupported'|'refused'} */
    this.state = 'stopped';
    this.counted = { bytes: 0, fragments: 0, frames: 0 };
    this.latency = null; // ms from capture to now, at the position that is shown
    this.video.addEventListener('waiting', () => this.edge?.stalled());
  }

  start() {
    if (this.state === 'stopped' && Source === undefined) {
      this.#enter('unsupported');
    } else if (this.state === 'stopped') {
      this.#connect();
    }
  }

  stop() {
    clearTimeout(this.retry);
    this.#disconnect();
    this.#enter('stopped');
  }

  #enter(state, reason = '') {
    if (this.state !== state) {
      this.state = state;
      this.dispatchEvent(new CustomEvent('state', { detail: { state, reason } }));
    }
  }

  #connect() {
    this.#enter('connecting');
    this.edge = new LiveEdge();
    this.description = null;
    this.#openMedia();
    const socket = new WebSocket(this.url);
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    const own = (handler) => (event) => {
      if (this.socket === socket) {
        handler(event);
      }
    };
    socket.addEventListener('message', own(({ data }) => this.#onMessage(data)));
    socket.addEventListener('close', own(({ reason }) => this.#lost(reason)));
    this.#listen();
    this.timer = setInterval(() => this.#hold(), 100);
  }

  #disconnect() {
    clearInterval(this.timer);
    clearTimeout(this.quiet);
    const socket = this.socket;
    this.socket = null;
    socket?.close();
    this.#closeMedia();
  }

  #openMedia() {
    this.buffer = null;
    this.waiting = [];
    this.waitingBytes = 0;
    this.clock = null;
    this.media = new Source();
    this.opened = new Promise((resolve) => {
      this.media.addEventListener('sourceopen', resolve, { once: true });
    });
    this.object = URL.createObjectURL(this.media);
    this.video.src = this.object;
  }

  #closeMedia() {
    this.buffer = null;
    if (this.object) {
      this.video.removeAttribute('src');
      this.video.load();
      URL.revokeObjectURL(this.object);
      this.object = null;
    }
  }

  #lost(reason) {
    this.#disconnect();
    this.#enter('waiting', reason);
    this.retry = setTimeout(() => this.#connect(), this.backoff.next());
  }

  /** Gives the connection some seconds for the next message. */
  #listen() {
    clearTimeout(this.quiet);
    this.quiet = setTimeout(() => this.#lost('nothing is received'), LivePlayer.silence);
  }

  #onMessage(data) {
    this.#listen();
    if (typeof data === 'string') {
      this.#describe(JSON.parse(data));
      return;
    }
    this.counted.bytes += data.byteLength;
    const time = captureTime(data);
    if (time) {
      ++this.counted.fragments;
      if (time.track === this.description?.video?.track) {
        this.clock = { wall: time.wall, media: time.media / this.description.video.timescale };
      }
    }
    this.waiting.push(data);
    this.waitingBytes += data.byteLength;
    if (this.waitingBytes > LivePlayer.maxWaiting) {
      this.#lost('the browser does not take what is received');
      return;
    }
    this.#feed();
  }

  async #describe(description) {
    if (this.description) {
      // Other tracks or another format: what comes is not of the former source.
      this.#closeMedia();
      this.#openMedia();
    }
    this.description = description;
    if (!Source.isTypeSupported(description.mime)) {
      this.#disconnect();
      this.#enter('unsupported', description.mime);
      return;
    }
    const media = this.media;
    await this.opened;
    if (this.media !== media || media.readyState !== 'open') {
      return;
    }
    this.buffer = media.addSourceBuffer(description.mime);
    this.buffer.addEventListener('updateend', () => this.#feed());
    this.buffer.addEventListener('error', () => this.#lost('the browser cannot decode it'));
    this.#feed();
  }

  #feed() {
    const buffer = this.buffer;
    if (!buffer || buffer.updating || this.media.readyState !== 'open') {
      return;
    }
    const buffered = buffer.buffered;
    if (buffered.length > 0 && this.video.currentTime - buffered.start(0) > 2 * LivePlayer.kept) {
      buffer.remove(0, this.video.currentTime - LivePlayer.kept);
      return;
    }
    if (this.waiting.length === 0) {
      return;
    }
    const next = this.waiting.shift();
    this.waitingBytes -= next.byteLength;
    try {
      buffer.appendBuffer(next);
    } catch (error) {
      this.#lost(error.message);
    }
  }

  /** Holds the live edge, and the figures. */
  #hold() {
    const { buffer, video } = this;
    if (!buffer || buffer.buffered.length === 0) {
      return;
    }
    const end = buffer.buffered.end(buffer.buffered.length - 1);
    const start = buffer.buffered.start(buffer.buffered.length - 1);
    if (video.currentTime < start) {
      video.currentTime = start;
    }
    const { rate, seekTo } = this.edge.advise(video.currentTime, end, performance.now() / 1000);
    if (seekTo !== null) {
      video.currentTime = Math.max(start, seekTo);
    }
    if (video.playbackRate !== rate) {
      video.playbackRate = rate;
    }
    if (video.paused) {
      video.play().catch(() => {}); // the next turn tries again
    } else if (video.readyState >= HTMLMediaElement.HAVE_CURRENT_DATA) {
      this.backoff.reset();
      this.#enter('playing');
    }
    if (this.clock) {
      this.latency = Date.now() - (this.clock.wall + (video.currentTime - this.clock.media) * 1000);
    }
  }
}

/** Plays while an element is in sight of a visible page, and not otherwise. */
export class SeenPlayback {
  /**
   * @param {LivePlayer} player
   * @param {Element} element
   */
  constructor(player, element) {
    this.player = player;
    this.inSight = false;
    this.onVisibility = () => this.#decide();
    this.observer = new IntersectionObserver((entries) => {
      this.inSight = entries[entries.length - 1].isIntersecting;
      this.#decide();
    });
    this.observer.observe(element);
    document.addEventListener('visibilitychange', this.onVisibility);
  }

  end() {
    this.observer.disconnect();
    document.removeEventListener('visibilitychange', this.onVisibility);
    this.player.stop();
  }

  #decide() {
    if (this.inSight && document.visibilityState === 'visible') {
      this.player.start();
    } else {
      this.player.stop();
    }
  }
}
