import { account } from './account.js';
import { api } from './api.js';
import { element, table } from './elements.js';

const levels = { running: 'good', frozen: 'warn', unreachable: 'bad', refused: 'bad', failed: 'bad' };

const clock = new Intl.DateTimeFormat(undefined, { dateStyle: 'short', timeStyle: 'medium' });

/** A date of the API for people; an empty text for none. */
export function dateText(date) {
  return date === null ? '' : clock.format(new Date(date));
}

/** Bytes for people: "12.3 MB". */
export function sizeText(bytes) {
  const units = ['B', 'kB', 'MB', 'GB', 'TB'];
  let at = 0;
  let size = bytes;
  while (size >= 1000 && at < units.length - 1) {
    size /= 1000;
    ++at;
  }
  return `${at === 0 ? size : size.toFixed(1)} ${units[at]}`;
}

/** Cameras and sessions as tables, brought up to date every two seconds. */
export class StatePage {
  async show(main) {
    this.main = main;
    this.cameras = element('div');
    this.sessions = element('div');
    this.problem = element('p', { role: 'alert' });
    this.me = await account();
    await this.#refresh();
    if (this.ended) {
      return;
    }
    main.replaceChildren(this.problem, this.cameras, this.sessions);
    this.timer = setInterval(() => this.#refresh().then(
      () => { this.problem.textContent = ''; },
      (error) => { this.problem.textContent = error.message; }), 2000);
  }

  end() {
    this.ended = true;
    clearInterval(this.timer);
  }

  async #refresh() {
    const [{ cameras }, { sessions }] = await Promise.all([api('cameras'), api('sessions')]);
    this.#replace(this.cameras, table('Cameras',
      ['Camera', 'Stream', 'State', 'Since', 'Video', 'Audio', 'Recorded', 'Last error'],
      cameras.flatMap((camera) => camera.streams.map((stream) => [
        camera.name,
        String(stream.stream),
        element('span', { class: 'state', 'data-level': levels[stream.state] ?? null }, stream.state),
        dateText(stream.since),
        stream.video,
        stream.audio,
        stream.recording ? 'yes' : stream.record === 'events' ? 'on events' : 'no',
        stream.lastError ?? '',
      ]))));
    const ends = (session) => this.me.mayChange && cameras.some(({ id, rights }) => id === session.camera && rights.includes('admin'));
    this.#replace(this.sessions, table('Sessions',
      ['Kind', 'Path', 'User', 'Address', 'Transport', 'Since', 'Sent', 'Lost', ''],
      sessions.map((session) => [
        session.kind,
        session.path,
        session.user || 'nobody',
        session.address,
        session.transport,
        dateText(session.since),
        sizeText(session.bytes),
        String(session.lost),
        ends(session) ? this.#endButton(session) : '',
      ])));
  }

  /** A new table in place of the former one: the keyboard's focus and the place that it was scrolled to stay. */
  #replace(place, made) {
    const left = place.firstChild?.scrollLeft ?? 0;
    const focused = place.contains(document.activeElement) ? document.activeElement.dataset.key : null;
    place.replaceChildren(made);
    made.scrollLeft = left;
    if (focused) {
      place.querySelector(`[data-key="${CSS.escape(focused)}"]`)?.focus();
    }
  }

  #endButton(session) {
    return element('button', { type: 'button', 'data-key': session.id, 'aria-label': `End session of ${session.address}`,
      onclick: async () => {
        try {
          await api(`sessions/${encodeURIComponent(session.id)}`, { method: 'DELETE' });
          await this.#refresh();
        } catch (error) {
          this.problem.textContent = error.message;
        }
      } }, 'End');
  }
}
