import { captureTime } from './fragments.js';
import { steer } from './play-clock.js';
import { RecordedTime, isBuffered, sending } from './recorded-time.js';

const Source = globalThis.MediaSource ?? globalThis.ManagedMediaSource;

/**
 * Plays a camera's recordings in a video element, as the page's clock says. What is buffered ahead is bounded: the player says
 * to the server how far on the media's timeline it wants to have them.
 */
export class RecordedPlayer {
  static ahead = 6; // seconds of playing
  static kept = 10; // the same, behind the position

  /**
   * @param {HTMLVideoElement} video
   * @param {(start: number, speed: number) => string} url  of the WebSocket that begins at a date
   */
  constructor(video, url) {
    this.video = video;
    this.video.disableRemotePlayback = true;
    this.url = url;
    this.problem = ''; // what people should know
    this.time = new RecordedTime();
    this.waiting = [];
  }

  /** Shows a date, and what follows it at a speed. */
  seek(date, speed) {
    if (this.kind === sending(speed) && this.socket && this.#has(date)) {
      this.#place(date);
      return;
    }
    this.#close();
    this.kind = sending(speed);
    this.problem = '';
    this.ended = false;
    this.time = new RecordedTime();
    this.wanted = 0;
    this.tracks = null;
    const socket = new WebSocket(this.url(date, speed));
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    socket.addEventListener('message', ({ data }) => this.socket === socket && this.#onMessage(data));
    socket.addEventListener('close', () => {
      if (this.socket === socket && !this.ended) {
        this.ended = true;
        this.problem ||= 'The recording cannot be reached.';
      }
    });
    this.#openMedia();
  }

  end() {
    this.#close();
  }

  /** What it has at a date. */
  state(date) {
    if (this.problem) {
      return { state: 'end', resumes: null };
    }
    if (this.#has(date)) {
      return { state: 'ready', resumes: null };
    }
    const resumes = this.time.nextAfter(date);
    if (this.waiting.length === 0 && resumes !== null && !this.#arriving(date)) {
      return { state: 'gap', resumes };
    }
    return { state: this.ended && this.waiting.length === 0 && !this.buffer?.updating ? 'end' : 'loading', resumes: null };
  }

  /** Keeps the video at the clock. */
  follow(date, playing, speed) {
    const media = this.time.mediaAt(date);
    if (media === null || !this.buffer) {
      return;
    }
    this.#want(media + RecordedPlayer.ahead * Math.max(1, Math.abs(speed)), speed);
    const { video } = this;
    if (!isBuffered(video.buffered, media)) {
      video.pause();
      return;
    }
    const { rate, seekTo } = steer(video.currentTime, media, Math.abs(speed));
    if (!playing) {
      video.pause();
      if (Math.abs(video.currentTime - media) > 0.02 && !video.seeking) {
        video.currentTime = media;
      }
      return;
    }
    if (seekTo !== null && !video.seeking) {
      video.currentTime = seekTo;
    }
    if (video.playbackRate !== rate) {
      video.playbackRate = rate;
    }
    if (video.paused) {
      video.play().catch(() => {});
    }
  }

  /** The date of what is on screen. */
  get shown() {
    return this.time.dateAt(this.video.currentTime);
  }

  #has(date) {
    const media = this.time.mediaAt(date);
    return media !== null && Boolean(this.buffer) && isBuffered(this.video.buffered, media);
  }

  /** Whether the place of a date lies in front of what comes next in its own range. */
  #arriving(date) {
    const media = this.time.mediaAt(date);
    return media !== null && this.received !== undefined && this.received < media && this.time.nextAfter(date) === null;
  }

  #place(date) {
    const media = this.time.mediaAt(date);
    if (media !== null) {
      this.video.currentTime = media;
    }
  }

  #want(media, speed) {
    if (this.socket?.readyState === WebSocket.OPEN && media > this.wanted + Math.abs(speed) / 2) {
      this.wanted = media;
      this.socket.send(`${media.toFixed(3)}\n`);
    }
  }

  #openMedia() {
    this.buffer = null;
    this.waiting = [];
    this.received = undefined;
    this.media = new Source();
    this.object = URL.createObjectURL(this.media);
    this.video.src = this.object;
    const { media } = this;
    media.addEventListener('sourceopen', () => this.media === media && this.#feed(), { once: true });
  }

  #closeMedia() {
    this.buffer = null;
    this.media = null;
    if (this.object) {
      this.video.removeAttribute('src');
      this.video.load();
      URL.revokeObjectURL(this.object);
      this.object = null;
    }
  }

  #close() {
    const { socket } = this;
    this.socket = null;
    socket?.close();
    this.#closeMedia();
  }

  #onMessage(data) {
    if (typeof data !== 'string') {
      this.waiting.push(data);
      this.#feed();
      return;
    }
    const message = JSON.parse(data);
    if (message.type === 'range') {
      this.time.add(message);
      if (message.position !== undefined) {
        // Before anything is there: the first frame to be seen is the right one.
        this.video.currentTime = message.position;
      }
    } else if (message.type === 'description') {
      this.waiting.push(message);
      this.#feed();
    } else if (message.type === 'end') {
      this.ended = true;
      this.problem = message.reason === 'nothing' ? 'Nothing was recorded here.' : '';
      this.#feed();
    }
  }

  /** Appends the next of what was received. */
  #feed() {
    const { media } = this;
    if (!media || media.readyState === 'closed' || this.buffer?.updating) {
      return;
    }
    if (this.#trim()) {
      return;
    }
    if (this.waiting.length === 0) {
      if (this.ended && media.readyState === 'open' && this.buffer) {
        media.endOfStream();
      }
      return;
    }
    const next = this.waiting[0];
    if (!(next instanceof ArrayBuffer)) {
      this.#describe(next);
      return;
    }
    try {
      this.buffer.appendBuffer(next);
      this.waiting.shift();
      this.received = captureTime(next) ? this.#mediaOf(next) : this.received;
    } catch (error) {
      if (error.name !== 'QuotaExceededError') {
        this.problem = 'The browser cannot play this recording.';
      }
      // Otherwise the next turn finds less to keep.
    }
  }

  #mediaOf(fragment) {
    const time = captureTime(fragment);
    return time.media / (this.tracks?.timescale ?? 90000);
  }

  /** Removes what was played. \returns whether it is under way */
  #trim() {
    const { buffer, video } = this;
    if (!buffer || buffer.buffered.length === 0) {
      return false;
    }
    const kept = RecordedPlayer.kept * Math.max(1, video.playbackRate);
    if (video.currentTime - buffer.buffered.start(0) <= 2 * kept || this.media.readyState !== 'open') {
      return false;
    }
    buffer.remove(0, video.currentTime - kept);
    return true;
  }

  #describe(description) {
    const tracks = { video: description.video !== null, audio: description.audio !== null };
    if (!Source.isTypeSupported(description.mime)) {
      this.waiting = [];
      this.problem = `This browser cannot play ${description.video?.codec ?? description.audio?.codec}.`;
      return;
    }
    if (!this.buffer) {
      this.buffer = this.media.addSourceBuffer(description.mime);
      const { buffer } = this;
      buffer.addEventListener('updateend', () => this.buffer === buffer && this.#feed());
    } else if (tracks.audio === this.tracks.audio && tracks.video === this.tracks.video) {
      this.buffer.changeType(description.mime);
    } else if (this.video.currentTime < this.#bufferedEnd() - 0.15) {
      // A source has the tracks that it began with: another one takes over where this one ends.
      setTimeout(() => this.#feed(), 100);
      return;
    } else {
      const { waiting } = this;
      const place = this.#bufferedEnd();
      this.#closeMedia();
      this.#openMedia();
      this.waiting = waiting;
      this.video.currentTime = place + 0.05;
      return;
    }
    this.tracks = tracks;
    this.waiting.shift();
    this.#feed();
  }

  #bufferedEnd() {
    const { buffered } = this.buffer;
    return buffered.length > 0 ? buffered.end(buffered.length - 1) : 0;
  }
}
