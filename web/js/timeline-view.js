import { element } from './elements.js';
import { keyAction } from './timeline-keys.js';
import { TimeScale, day, hour, label, minute } from './time-scale.js';

const full = new Intl.DateTimeFormat(undefined, { dateStyle: 'medium', timeStyle: 'medium' });

/** A date for people. */
export function dateText(date) {
  return full.format(new Date(date));
}

/** A scale that does not show what is yet to come. */
export function heldAtNow(scale, now) {
  return scale.to > now ? new TimeScale(now - scale.length, scale.length, scale.width) : scale;
}

/**
 * The timeline: a row for each camera, with what was recorded and the gaps, and the position in all of them.
 *
 * Dispatches "seek" (detail: the date), "toggle" (detail: a camera's id), "play", and "mark" (detail: 0 begin, 1 end).
 */
export class TimelineView extends EventTarget {
  /**
   * @param {{id: number, name: string}[]} cameras
   * @param {object} options
   * @param {(camera: number, date: number) => string|null} options.thumbnail  the address of a picture
   * @param {number} options.position  date
   */
  constructor(cameras, { thumbnail, position }) {
    super();
    this.thumbnail = thumbnail;
    this.position = position;
    this.marks = [null, null];
    this.pointers = new Map();
    this.follows = true; // the right edge is now
    this.scale = new TimeScale(Date.now() - hour, hour, 600);
    this.rows = cameras.map((camera) => this.#row(camera));
    this.axis = element('canvas', { class: 'axis', 'aria-hidden': 'true' });
    this.cursor = element('div', { class: 'cursor', 'aria-hidden': 'true' });
    this.peek = element('figure', { class: 'peek', hidden: true, 'aria-hidden': 'true' },
      element('img', { alt: '', width: '160', height: '90' }), element('figcaption', {}));
    this.track = element('div', { class: 'tracks', tabindex: '0', role: 'slider', 'aria-label': 'Position in the recordings',
      'aria-describedby': 'timeline-keys' },
      this.axis, ...this.rows.map(({ canvas }) => canvas), this.cursor);
    this.element = element('div', { class: 'timeline' },
      element('div', { class: 'names', role: 'group', 'aria-label': 'Cameras that are shown' },
        ...this.rows.map(({ button }) => button)),
      this.track, this.peek,
      element('p', { id: 'timeline-keys', class: 'unseen' },
        'Arrows move, with Shift further; Page Up and Page Down go from recording to recording; plus and minus zoom; ' +
        'Space plays; I and O mark an interval.'));
    this.#listen();
    this.observer = new ResizeObserver(() => this.draw());
    this.observer.observe(this.track);
    this.colours = matchMedia('(prefers-color-scheme: light)');
    this.onColours = () => this.draw();
    this.colours.addEventListener('change', this.onColours);
  }

  end() {
    this.observer.disconnect();
    this.colours.removeEventListener('change', this.onColours);
    clearTimeout(this.peeking);
    cancelAnimationFrame(this.frame);
  }

  #row(camera) {
    const button = element('button', { type: 'button', 'aria-pressed': 'false', title: camera.name,
      onclick: () => this.#tell('toggle', camera.id) }, camera.name);
    return { camera, button, ranges: [], canvas: element('canvas', { class: 'row', 'data-camera': camera.id }) };
  }

  #tell(name, detail) {
    this.dispatchEvent(new CustomEvent(name, { detail }));
  }

  setRanges(camera, ranges) {
    this.rows.find((row) => row.camera.id === camera).ranges = ranges;
    this.draw();
  }

  /** @param {number[]} open  ids of the cameras that are shown */
  setOpen(open) {
    for (const { camera, button } of this.rows) {
      button.setAttribute('aria-pressed', String(open.includes(camera.id)));
    }
  }

  setMarks(marks) {
    this.marks = marks;
    this.draw();
  }

  /** The position moved: it stays in sight, unless somebody looks elsewhere at present. */
  setPosition(date, { reveal = false } = {}) {
    this.position = date;
    const inSight = date >= this.scale.from && date <= this.scale.to;
    if (reveal && !inSight) {
      this.#show(this.scale.showing(date));
    } else if (!reveal && inSight && date > this.scale.to - this.scale.length / 50 && this.pointers.size === 0) {
      this.#show(this.scale.showing(date));
    }
    this.draw();
  }

  /** Zooms so that a length is in sight around the position, or up to now. */
  zoom(factor, x = null) {
    const { scale } = this;
    const inSight = this.position >= scale.from && this.position <= scale.to;
    this.#show(scale.zoomed(factor, x ?? (inSight ? scale.xOf(this.position) : scale.width)));
  }

  showLength(length) {
    this.zoom(length / this.scale.length);
  }

  /** Time passes. */
  tick() {
    if (this.follows) {
      this.scale = heldAtNow(new TimeScale(Date.now() - this.scale.length, this.scale.length, this.scale.width), Date.now());
      this.draw();
    }
  }

  #show(scale) {
    const now = Date.now();
    this.scale = heldAtNow(scale, now);
    this.follows = this.scale.to >= now - this.scale.length / 200;
    this.draw();
  }

  draw() {
    if (!this.frame) {
      this.frame = requestAnimationFrame(() => {
        this.frame = 0;
        this.#draw();
      });
    }
  }

  #draw() {
    const width = this.track.clientWidth;
    if (width === 0) {
      return;
    }
    this.scale = this.scale.resized(width);
    const style = getComputedStyle(this.track);
    const colour = (name) => style.getPropertyValue(name).trim();
    const colours = { line: colour('--line'), text: colour('--quiet'), recorded: colour('--recorded'), mark: colour('--mark') };
    const ticks = this.scale.ticks(Math.min(110, Math.max(80, width / 5)));
    this.#drawAxis(ticks, colours, style.fontFamily);
    this.rows.forEach((row) => this.#drawRow(row, ticks, colours));
    const x = this.scale.xOf(this.position);
    this.cursor.hidden = x < 0 || x > width;
    this.cursor.style.setProperty('transform', `translateX(${x}px)`);
    this.track.setAttribute('aria-valuemin', String(Math.round(Math.min(this.scale.from, this.position) / 1000)));
    this.track.setAttribute('aria-valuemax', String(Math.round(Math.max(this.scale.to, this.position) / 1000)));
    this.track.setAttribute('aria-valuenow', String(Math.round(this.position / 1000)));
    this.track.setAttribute('aria-valuetext', dateText(this.position));
  }

  /** A canvas in the pixels of the screen. */
  #clear(canvas) {
    const ratio = globalThis.devicePixelRatio || 1;
    const width = Math.round(canvas.clientWidth * ratio);
    const height = Math.round(canvas.clientHeight * ratio);
    if (canvas.width !== width || canvas.height !== height) {
      canvas.width = width;
      canvas.height = height;
    }
    const context = canvas.getContext('2d');
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, canvas.clientWidth, canvas.clientHeight);
    return context;
  }

  #drawAxis(ticks, colours, font) {
    const context = this.#clear(this.axis);
    const height = this.axis.clientHeight;
    context.font = `${Math.round(height * 0.5)}px ${font}`;
    context.textBaseline = 'middle';
    for (const { time, x, step } of ticks) {
      const text = label(time, step);
      context.fillStyle = colours.line;
      context.fillRect(Math.round(x), height - 5, 1, 5);
      context.fillStyle = colours.text;
      const half = context.measureText(text).width / 2;
      if (x - half >= 0 && x + half <= this.scale.width) {
        context.fillText(text, x - half, height / 2 - 2);
      }
    }
  }

  #drawRow({ canvas, ranges }, ticks, colours) {
    const context = this.#clear(canvas);
    const height = canvas.clientHeight;
    context.fillStyle = colours.line;
    ticks.forEach(({ x }) => context.fillRect(Math.round(x), 0, 1, height));
    context.fillStyle = colours.recorded;
    this.scale.spans(ranges).forEach(({ x, width }) => context.fillRect(x, 5, width, height - 10));
    const [from, to] = this.marks;
    if (from !== null || to !== null) {
      const left = Math.max(0, this.scale.xOf(from ?? to));
      const right = Math.min(this.scale.width, this.scale.xOf(to ?? from));
      context.fillStyle = colours.mark;
      context.globalAlpha = 0.35;
      context.fillRect(left, 0, Math.max(0, right - left), height);
      context.globalAlpha = 1;
      [from, to].filter((date) => date !== null)
        .forEach((date) => context.fillRect(Math.round(this.scale.xOf(date)) - 1, 0, 2, height));
    }
  }

  #listen() {
    const { track } = this;
    const xOf = (event) => event.clientX - track.getBoundingClientRect().left;
    track.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) {
        return;
      }
      track.setPointerCapture(event.pointerId);
      this.pointers.set(event.pointerId, { x: xOf(event), moved: false });
    });
    track.addEventListener('pointermove', (event) => this.#onMove(event, xOf(event)));
    track.addEventListener('pointerup', (event) => {
      const pointer = this.pointers.get(event.pointerId);
      this.pointers.delete(event.pointerId);
      if (pointer && !pointer.moved) {
        this.#tell('seek', Math.min(Date.now(), this.scale.timeAt(xOf(event))));
      }
    });
    track.addEventListener('pointercancel', (event) => this.pointers.delete(event.pointerId));
    track.addEventListener('pointerleave', () => this.#hidePeek());
    track.addEventListener('wheel', (event) => {
      event.preventDefault();
      if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
        this.#show(this.scale.moved(-(event.deltaX || event.deltaY)));
      } else {
        this.#show(this.scale.zoomed(1.0015 ** Math.max(-500, Math.min(500, event.deltaY)), xOf(event)));
      }
    }, { passive: false });
    track.addEventListener('keydown', (event) => this.#onKey(event));
  }

  #onMove(event, x) {
    const pointer = this.pointers.get(event.pointerId);
    if (!pointer) {
      if (event.pointerType === 'mouse') {
        this.#peekAt(x, event.target.dataset.camera);
      }
      return;
    }
    const others = [...this.pointers.entries()].filter(([id]) => id !== event.pointerId);
    if (others.length === 1) {
      // Two fingers: what is under them stays under them.
      const fixed = others[0][1];
      const before = Math.abs(pointer.x - fixed.x);
      const after = Math.abs(x - fixed.x);
      if (before > 10 && after > 10) {
        this.#show(this.scale.zoomed(before / after, fixed.x));
      }
      pointer.moved = true;
      fixed.moved = true;
      pointer.x = x;
    } else if (pointer.moved || Math.abs(x - pointer.x) > 4) {
      this.#show(this.scale.moved(x - pointer.x));
      pointer.x = x;
      pointer.moved = true;
      this.#hidePeek();
    }
  }

  #onKey(event) {
    const found = keyAction(event, this.scale.length);
    if (!found) {
      return;
    }
    event.preventDefault();
    const { action, value } = found;
    if (action === 'zoom') {
      this.zoom(value);
    } else if (action === 'step') {
      this.#tell('seek', Math.min(Date.now(), this.position + value));
    } else {
      this.#tell(action, value);
    }
  }

  /** A picture of what is under the pointer. */
  #peekAt(x, camera) {
    const { peek, scale } = this;
    const time = scale.timeAt(x);
    const [image, caption] = peek.children;
    const half = 84;
    peek.hidden = false;
    caption.textContent = dateText(time);
    const left = this.track.offsetLeft + x;
    peek.style.setProperty('left', `${Math.max(half, Math.min(this.element.clientWidth - half, left))}px`);
    clearTimeout(this.peeking);
    // Pictures of the same few pixels are one, which the browser keeps.
    const grid = Math.max(1000, (scale.length / scale.width) * 6);
    const url = this.thumbnail(camera === undefined ? null : Number(camera), Math.round(time / grid) * grid);
    image.hidden = url === null;
    if (url !== null && image.getAttribute('src') !== url) {
      this.peeking = setTimeout(() => {
        image.src = url;
      }, 60);
    }
  }

  #hidePeek() {
    clearTimeout(this.peeking);
    this.peek.hidden = true;
  }
}

/** Lengths that buttons offer. */
export const lengths = [['1 min', minute], ['1 h', hour], ['1 day', day], ['30 days', 30 * day]];
