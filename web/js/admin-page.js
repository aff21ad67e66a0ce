import { account } from './account.js';
import { api } from './api.js';
import { element, table } from './elements.js';
import { ServerEventStream } from './event-stream.js';
import { dateText, sizeText } from './state-page.js';

const states = {
  open: 'Events appear here as they happen.',
  lost: 'The connection is lost: trying again…',
  refused: 'You may not see events any more.',
};

/** What an administrator of the server needs: disks, events, the configuration in force, and reading it again. */
export class AdminPage {
  static maxEvents = 200;

  async show(main) {
    this.storage = element('div');
    this.problem = element('p', { role: 'alert' });
    const me = await account();
    await this.#refresh();
    if (this.ended) {
      return;
    }
    this.eventState = element('p', { class: 'quiet' });
    this.eventList = element('ol', { class: 'events', role: 'log', tabindex: '0', 'aria-label': 'Events' });
    this.configuration = element('pre', { tabindex: '0', 'aria-label': 'Configuration in force' });
    this.outcome = element('div', { class: 'outcome', role: 'status' });
    main.replaceChildren(this.problem, this.storage,
      element('section', { class: 'panel' }, element('h2', {}, 'Events'), this.eventState, this.eventList),
      element('section', { class: 'panel' },
        element('h2', {}, 'Configuration'),
        me.mayChange ? element('button', { type: 'button', onclick: (event) => this.#reload(event.target) },
          'Read the configuration file again') : null,
        this.outcome,
        element('details', {}, element('summary', {}, 'In force'), this.configuration)));
    this.events = new ServerEventStream((event) => this.#add(event), (state) => {
      this.eventState.textContent = states[state];
    });
    this.timer = setInterval(() => this.#refresh().then(
      () => { this.problem.textContent = ''; },
      (error) => { this.problem.textContent = error.message; }), 10000);
    await this.#showConfiguration();
  }

  end() {
    this.ended = true;
    this.events?.end();
    clearInterval(this.timer);
  }

  async #refresh() {
    const [storage, { cameras }] = await Promise.all([api('storage'), api('cameras')]);
    const limits = [
      storage.maxSize > 0 ? `at most ${sizeText(storage.maxSize)}` : null,
      storage.maxAge > 0 ? `for ${Math.round(storage.maxAge / 360) / 10} h` : null,
    ].filter(Boolean).join(', ') || 'no limit but the disk';
    const used = storage.capacity === null ? null : storage.capacity - storage.available;
    const made = table('Disk and recordings', ['What', 'Size', 'Oldest'], [
      ['Disk', used === null ? 'not there' : element('span', {},
        element('meter', { min: '0', max: String(storage.capacity), value: String(used), 'aria-label': 'Used' }),
        ` ${sizeText(used)} of ${sizeText(storage.capacity)} used`), ''],
      [`Recordings in ${storage.directory}`, `${sizeText(storage.bytes)}, ${limits}`, ''],
      ...storage.cameras.map(({ camera, bytes, oldest }) => [
        cameras.find(({ id }) => id === camera)?.name ?? `Camera ${camera}`, sizeText(bytes), dateText(oldest)]),
    ]);
    this.storage.replaceChildren(made);
  }

  #add({ name, data }) {
    const { event, time, ...fields } = data;
    const details = Object.entries(fields).map(([key, value]) => `${key} ${value}`).join(', ');
    this.eventList.prepend(element('li', {},
      element('time', { datetime: time }, time ? dateText(time) : ''),
      element('b', {}, name === 'lost' ? 'events were lost' : name.replaceAll('-', ' ')),
      element('span', {}, details)));
    while (this.eventList.children.length > AdminPage.maxEvents) {
      this.eventList.lastChild.remove();
    }
  }

  async #showConfiguration() {
    this.configuration.textContent = (await api('config')).toml;
  }

  async #reload(button) {
    button.disabled = true;
    try {
      const { applied, needRestart, warnings } = await api('reload', { method: 'POST' });
      const list = (heading, lines) => (lines.length === 0 ? null : element('div', {},
        element('p', {}, heading), element('ul', {}, ...lines.map((line) => element('li', {}, line)))));
      this.outcome.replaceChildren(...[
        applied.length + needRestart.length === 0 ? element('p', {}, 'Nothing has changed.') : null,
        list('In force from now on:', applied),
        list('In force after a restart:', needRestart),
        list('Warnings:', warnings),
      ].filter(Boolean));
      await this.#showConfiguration();
    } catch (error) {
      this.outcome.replaceChildren(element('p', { class: 'bad' }, error.message));
    } finally {
      button.disabled = false;
    }
  }
}
