import { api, recordedUrl } from './api.js';
import { element } from './elements.js';
import { ExportPanel } from './export-panel.js';
import { PlayClock } from './play-clock.js';
import { merged, nextBegin, rangesOf } from './recorded-ranges.js';
import { RecordedPlayer } from './recorded-player.js';
import { playable } from './time-scale.js';
import { TimelineView, dateText, lengths } from './timeline-view.js';

const speeds = [-16, -8, -4, -2, -1, 0.25, 0.5, 1, 2, 4, 8, 16];
const maxOpen = 9;
const hints = { ready: '', loading: '', gap: 'Nothing was recorded at this time.', end: 'The recording ends here.' };

/** Nothing is announced again that is said already. */
function setText(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

/** Recordings: a timeline of all cameras, and up to nine of them in step. What is shown is kept in the address. */
export class RecordingsPage {
  /** @param {URLSearchParams} parameters  of the address: cameras, at, speed, from, to, name */
  constructor(parameters) {
    this.parameters = parameters;
    this.open = new Map();
    this.status = '';
  }

  async show(main) {
    const [{ cameras }, { recordings }] = await Promise.all([api('cameras'), api('recordings')]);
    this.cameras = cameras.filter(({ rights }) => rights.includes('playback'))
      .map(({ id, name, streams }) => ({ id, name, stream: streams[0].stream, streams: streams.map(({ stream }) => stream),
        ranges: [] }));
    this.#take(recordings, null);
    const recorded = this.cameras.filter(({ ranges }) => ranges.length > 0);
    if (recorded.length === 0) {
      main.replaceChildren(element('p', { class: 'notice' }, 'There are no recordings that you may play.'));
      return;
    }
    if (this.ended) {
      return;
    }
    const latest = Math.max(...recorded.map(({ ranges }) => ranges[ranges.length - 1].end));
    const at = Number(this.parameters.get('at')) * 1000;
    this.clock = new PlayClock(at > 0 ? at : latest - 10000);
    this.clock.speed = speeds.includes(Number(this.parameters.get('speed'))) ? Number(this.parameters.get('speed')) : 1;
    this.marks = ['from', 'to'].map((name) => Number(this.parameters.get(name)) * 1000 || null);
    this.#build(main);
    const asked = (this.parameters.get('cameras') ?? '').split(',').map(Number);
    const open = this.cameras.filter(({ id }) => asked.includes(id)).slice(0, maxOpen);
    (open.length > 0 ? open : recorded.slice(0, 1)).forEach((camera) => this.#openCamera(camera));
    this.#showMarks();
    this.clock.playing = true;
    this.#seek(this.clock.date);
    this.timer = setInterval(() => this.#turn(), 50);
    this.refresh = setInterval(() => this.#refresh().catch(() => {}), 5000);
  }

  end() {
    this.ended = true;
    clearInterval(this.timer);
    clearInterval(this.refresh);
    this.open.forEach(({ player }) => player.end());
    this.open.clear();
    this.view?.end();
  }

  #build(main) {
    this.view = new TimelineView(this.cameras, { position: this.clock.date,
      thumbnail: (camera, date) => this.#thumbnail(camera, date) });
    this.cameras.forEach(({ id, ranges }) => this.view.setRanges(id, ranges));
    this.view.addEventListener('seek', ({ detail }) => this.#seek(detail));
    this.view.addEventListener('toggle', ({ detail }) => this.#toggle(detail));
    this.view.addEventListener('play', () => this.#setPlaying(!this.clock.playing));
    this.view.addEventListener('mark', ({ detail }) => this.#mark(detail));
    this.view.addEventListener('range', ({ detail }) => this.#goTo(nextBegin(this.#rows(), this.clock.date, detail)));
    this.view.addEventListener('first', () => this.#goTo(Math.min(...this.#rows().flat().map(({ start }) => start))));
    this.view.addEventListener('last', () => this.#goTo(Math.max(...this.#rows().flat().map(({ end }) => end)) - 5000));
    this.stage = element('div', { class: 'stage' });
    this.play = element('button', { type: 'button', class: 'play',
      onclick: () => this.#setPlaying(!this.clock.playing) }, 'Pause');
    this.speed = element('select', { 'aria-label': 'Speed', onchange: () => this.#setSpeed(Number(this.speed.value)) },
      ...speeds.map((speed) => element('option', { value: String(speed), selected: speed === this.clock.speed },
        `${speed < 0 ? '−' : ''}${Math.abs(speed)}×`)));
    this.date = element('span', { class: 'date' });
    this.said = element('span', { class: 'said', role: 'status' });
    this.live = element('a', { class: 'button', href: '#/' }, 'Live');
    this.panel = new ExportPanel({ onChange: () => this.#remember(), onClear: () => {
      this.marks = [null, null];
      this.panel.name.value = '';
      this.#showMarks();
    } });
    this.panel.name.value = this.parameters.get('name') ?? '';
    const button = (text, onclick, name = null) => element('button', { type: 'button', onclick, 'aria-label': name }, text);
    main.replaceChildren(element('div', { class: 'recordings' },
      this.stage,
      element('div', { class: 'bar', role: 'group', 'aria-label': 'Playback' },
        this.play, this.speed, this.date, this.said,
        element('span', { class: 'group' },
          button('Mark begin', () => this.#mark(0)), button('Mark end', () => this.#mark(1))),
        element('span', { class: 'group' },
          button('−', () => this.view.zoom(2), 'Show more time'), button('+', () => this.view.zoom(0.5), 'Show less time'),
          ...lengths.map(([text, length]) => button(text, () => this.view.showLength(length), `Show ${text}`))),
        this.live),
      this.view.element,
      this.panel.element));
    this.#setPlaying(true);
  }

  #rows() {
    const open = this.cameras.filter(({ id }) => this.open.has(id));
    return (open.length > 0 ? open : this.cameras).map(({ ranges }) => ranges);
  }

  #thumbnail(id, date) {
    const camera = this.cameras.find((each) => each.id === id) ?? this.cameras.find((each) => this.open.has(each.id));
    return camera && camera.ranges.some(({ start, end }) => date >= start && date < end)
      ? `/api/v1/cameras/${camera.id}/streams/${camera.stream}/snapshot.jpg?time=${(date / 1000).toFixed(3)}&width=160`
      : null;
  }

  /** Takes what the API lists: of each camera the first stream that is recorded. */
  #take(recordings, from) {
    for (const camera of this.cameras) {
      const listed = recordings.filter((each) => each.camera === camera.id && camera.streams.includes(each.stream) &&
        each.ranges.length > 0).sort((a, b) => a.stream - b.stream);
      const found = from === null ? listed[0] : listed.find(({ stream }) => stream === camera.stream);
      if (found) {
        camera.stream = found.stream;
        camera.ranges = from === null ? merged([], rangesOf(found), 0) : merged(camera.ranges, rangesOf(found), from);
        this.view?.setRanges(camera.id, camera.ranges);
      }
    }
  }

  async #refresh() {
    const from = Date.now() - 60000;
    const { recordings } = await api(`recordings?start=${(from / 1000).toFixed(3)}`);
    if (!this.ended) {
      this.#take(recordings, from);
    }
  }

  #toggle(id) {
    if (this.open.has(id)) {
      this.#closeCamera(id);
    } else if (this.open.size < maxOpen) {
      this.#openCamera(this.cameras.find((camera) => camera.id === id));
      this.open.get(id).player.seek(this.clock.date, this.clock.speed);
    }
    this.#showMarks();
  }

  #openCamera(camera) {
    const video = element('video', { muted: true, playsinline: '', tabindex: '-1', 'aria-label': `Recording of ${camera.name}` });
    const hint = element('p', { class: 'hint', role: 'status' });
    const tile = element('figure', { class: 'tile', 'data-camera': camera.id },
      video, hint, element('figcaption', {}, element('span', {}, camera.name)));
    const player = new RecordedPlayer(video, (start, speed) => recordedUrl(camera.id, camera.stream, start, speed));
    this.open.set(camera.id, { camera, tile, hint, player });
    this.#showOpen();
  }

  #closeCamera(id) {
    this.open.get(id).player.end();
    this.open.delete(id);
    this.#showOpen();
  }

  #showOpen() {
    const all = this.cameras.filter(({ id }) => this.open.has(id)).map(({ id }) => this.open.get(id));
    const wanted = all.map(({ tile }) => tile);
    for (const tile of [...this.stage.children].filter((child) => !wanted.includes(child))) {
      tile.remove();
    }
    // Those that are there stay: a video that is moved stops.
    wanted.forEach((tile, i) => {
      if (this.stage.children[i] !== tile) {
        this.stage.insertBefore(tile, this.stage.children[i] ?? null);
      }
    });
    this.stage.style.setProperty('--columns', String(Math.ceil(Math.sqrt(Math.max(1, all.length)))));
    this.view.setOpen([...this.open.keys()]);
    this.live.href = all.length === 1 ? `#/?camera=${all[0].camera.id}` : '#/';
  }

  #goTo(date) {
    if (date !== null && Number.isFinite(date)) {
      this.#seek(date);
    }
  }

  #seek(date) {
    // In a gap of all cameras the next recording plays.
    const starts = this.#rows().map((ranges) => playable(ranges, date)).filter((start) => start !== null);
    this.clock.set(starts.length > 0 && this.clock.speed > 0 ? Math.min(...starts) : date);
    this.open.forEach(({ player }) => player.seek(this.clock.date, this.clock.speed));
    this.view.setPosition(this.clock.date, { reveal: true });
    this.#turn();
    this.#remember();
  }

  #setPlaying(playing) {
    this.clock.playing = playing;
    this.play.textContent = playing ? 'Pause' : 'Play';
    this.#remember();
  }

  #setSpeed(speed) {
    this.clock.speed = speed;
    this.open.forEach(({ player }) => player.seek(this.clock.date, speed));
    this.#setPlaying(true);
  }

  #mark(which) {
    const other = this.marks[1 - which];
    this.marks[which] = Math.round(this.clock.date);
    if (other !== null && (which === 0 ? this.marks[0] >= other : this.marks[1] <= other)) {
      this.marks[1 - which] = null;
    }
    this.#showMarks();
  }

  #showMarks() {
    this.view.setMarks(this.marks);
    this.panel.show(this.marks, [...this.open.values()].map(({ camera }) => camera));
    this.#remember();
  }

  /** Time passes. */
  #turn() {
    const players = [...this.open.values()];
    const states = players.map(({ player }) => player.state(this.clock.date));
    const status = this.clock.advance(performance.now(), states);
    const { date, speed } = this.clock;
    players.forEach(({ player, hint, tile }, i) => {
      player.follow(date, status === 'playing', speed);
      const { state } = states[i];
      tile.dataset.state = state;
      setText(hint, player.problem || hints[state]);
      player.video.classList.toggle('stale', state === 'gap' || state === 'end');
    });
    if (status === 'ended' && this.clock.playing) {
      this.#setPlaying(false);
    }
    setText(this.said, status === 'waiting' && this.status === 'waiting' ? 'Loading…' : '');
    this.status = status;
    setText(this.date, dateText(date));
    this.view.setPosition(date);
    this.view.tick();
  }

  /** Keeps what is shown in the address, so that it can be sent to somebody. */
  #remember() {
    if (this.ended || !this.panel) {
      return;
    }
    const query = new URLSearchParams({ cameras: [...this.open.keys()].join(','), at: (this.clock.date / 1000).toFixed(3) });
    if (this.clock.speed !== 1) {
      query.set('speed', String(this.clock.speed));
    }
    ['from', 'to'].forEach((name, i) => this.marks[i] !== null && query.set(name, (this.marks[i] / 1000).toFixed(3)));
    if (this.panel.name.value) {
      query.set('name', this.panel.name.value);
    }
    history.replaceState(null, '', `#/recordings?${query.toString().replaceAll('%2C', ',')}`);
  }
}
