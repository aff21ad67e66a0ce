import { api } from './api.js';
import { element } from './elements.js';
import { TalkButton } from './talk-button.js';
import { Tile } from './tile.js';

const layouts = [1, 4, 9, 16];

/** The wall of cameras: 1, 4, 9 or 16 at once, or one enlarged. Layout and page are kept in the address. */
export class WallPage {
  /** @param {URLSearchParams} parameters  of the address: layout, from, camera */
  constructor(parameters) {
    this.parameters = parameters;
    this.tiles = [];
    this.figures = false;
  }

  async show(main) {
    const { cameras: all } = await api('cameras');
    const cameras = all.filter(({ rights }) => rights.includes('live'));
    if (cameras.length === 0) {
      main.replaceChildren(element('p', { class: 'notice' }, 'There is no camera that you may watch.'));
      return;
    }
    const chosen = cameras.find(({ id }) => String(id) === this.parameters.get('camera'));
    if (chosen) {
      this.#showOne(main, chosen);
    } else {
      this.#showMany(main, cameras);
    }
  }

  end() {
    this.tiles.forEach((tile) => tile.end());
    this.tiles = [];
    this.talk?.end();
    this.talk = null;
  }

  #showOne(main, camera) {
    const tile = new Tile(camera, camera.streams[0].stream, { audio: true });
    this.tiles = [tile];
    const sound = element('button', { type: 'button', 'aria-pressed': 'false', onclick: () => {
      tile.video.muted = !tile.video.muted;
      sound.setAttribute('aria-pressed', String(!tile.video.muted));
    } }, 'Audio');
    const talks = camera.talkBack !== 'none' && camera.rights.includes('talk');
    this.talk = talks ? new TalkButton(camera) : null;
    main.replaceChildren(
      element('div', { class: 'bar' },
        element('a', { href: '#/' }, 'All cameras'),
        element('h2', {}, camera.name), sound, this.#figuresButton(), this.talk?.element ?? null,
        camera.rights.includes('playback') ? element('a', { href: `#/recordings?cameras=${camera.id}` }, 'Recordings') : null),
      element('div', { class: 'large' }, tile.element));
  }

  #showMany(main, cameras) {
    const fitting = layouts.find((count) => count >= cameras.length) ?? layouts[layouts.length - 1];
    const asked = Number(this.parameters.get('layout'));
    const layout = layouts.includes(asked) ? asked : fitting;
    const pages = Math.ceil(cameras.length / layout);
    const page = Math.min(pages, Math.max(1, Math.floor(Number(this.parameters.get('page')) || 1)));
    const shown = cameras.slice((page - 1) * layout, page * layout);
    this.tiles = shown.map((camera) => {
      // Small pictures show the smallest stream.
      const stream = layout > 1 ? camera.streams[camera.streams.length - 1] : camera.streams[0];
      return new Tile(camera, stream.stream, { href: `#/?camera=${camera.id}` });
    });
    main.replaceChildren(
      element('div', { class: 'bar' },
        element('div', { role: 'group', 'aria-label': 'Pictures at once' },
          ...layouts.map((count) => element('button', {
            type: 'button', 'aria-pressed': String(count === layout),
            onclick: () => { location.hash = `#/?layout=${count}`; },
          }, String(count)))),
        pages > 1 ? this.#pages(layout, page, pages) : null,
        this.#figuresButton()),
      element('div', { class: 'wall' }, ...this.tiles.map((tile) => tile.element)));
    main.querySelector('.wall').style.setProperty('--columns', String(Math.sqrt(layout)));
  }

  #pages(layout, page, pages) {
    const go = (to) => () => { location.hash = `#/?layout=${layout}&page=${to}`; };
    return element('div', { role: 'group', 'aria-label': 'Pages' },
      element('button', { type: 'button', disabled: page === 1, onclick: go(page - 1) }, 'Previous'),
      ` ${page} of ${pages} `,
      element('button', { type: 'button', disabled: page === pages, onclick: go(page + 1) }, 'Next'));
  }

  #figuresButton() {
    const button = element('button', { type: 'button', 'aria-pressed': 'false', onclick: () => {
      this.figures = !this.figures;
      button.setAttribute('aria-pressed', String(this.figures));
      this.tiles.forEach((tile) => tile.showFigures(this.figures));
    } }, 'Figures');
    return button;
  }
}
