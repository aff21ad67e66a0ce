import { element } from './elements.js';
import { durationText, exportPath, fileName } from './recorded-ranges.js';
import { dateText } from './timeline-view.js';

/** More than this is left to the browser, which writes to the disk what a page would keep in memory. */
const maxInPage = 512 * 1024 * 1024;

/** An interval that was marked: its name, its files, and the link that shows it to somebody else. */
export class ExportPanel {
  /**
   * @param {object} calls
   * @param {() => void} calls.onChange  the name changed, or nothing is marked any more
   */
  constructor({ onChange, onClear }) {
    this.text = element('p', { class: 'interval', role: 'status' });
    this.name = element('input', { type: 'text', maxlength: '100', placeholder: 'such as “Parcel”', oninput: onChange });
    this.files = element('ul', {});
    this.copied = element('span', { role: 'status' });
    this.element = element('section', { class: 'export', hidden: true, 'aria-label': 'Marked interval' },
      this.text,
      element('label', {}, 'Name ', this.name),
      this.files,
      element('button', { type: 'button', onclick: () => this.#copy() }, 'Copy link'),
      this.copied,
      element('button', { type: 'button', onclick: onClear }, 'Clear'));
  }

  /**
   * @param {[number|null, number|null]} marks
   * @param {{id: number, name: string, stream: number}[]} cameras
   */
  show([from, to], cameras) {
    this.element.hidden = from === null && to === null;
    const whole = from !== null && to !== null;
    this.text.textContent = whole
      ? `${dateText(from)} to ${dateText(to)} (${durationText(to - from)})`
      : `Marked: ${from === null ? 'end' : 'begin'} at ${dateText(from ?? to)}`;
    this.files.replaceChildren(...(whole ? cameras.map((camera) => this.#file(camera, from, to)) : []));
    this.copied.textContent = '';
  }

  #file(camera, from, to) {
    const path = exportPath(camera.id, camera.stream, from, to);
    const progress = element('progress', { max: '1', value: '0', hidden: true, 'aria-label': `Export of ${camera.name}` });
    const said = element('span', { role: 'status' });
    const link = element('a', { href: path, download: '', onclick: (event) => {
      event.preventDefault();
      this.#download(path, this.#fileName(camera, from), { link, progress, said });
    } }, `Export ${camera.name} as MP4`);
    return element('li', {}, link, progress, said);
  }

  #fileName(camera, from) {
    const date = new Date(from).toISOString().slice(0, 19).replaceAll(':', '-');
    return `${fileName(this.name.value) || fileName(`${camera.name} ${date}`)}.mp4`;
  }

  async #download(path, name, { link, progress, said }) {
    if (!progress.hidden) {
      return;
    }
    said.textContent = '';
    progress.hidden = false;
    progress.removeAttribute('value');
    try {
      const response = await fetch(path);
      if (!response.ok) {
        throw new Error((await response.json().catch(() => ({}))).detail ?? response.statusText);
      }
      const size = Number(response.headers.get('Content-Length'));
      if (size > maxInPage) {
        await response.body.cancel();
        save(path, name);
        said.textContent = 'The browser saves it.';
        return;
      }
      const parts = [];
      let got = 0;
      for (const reader = response.body.getReader();;) {
        const { done, value } = await reader.read();
        if (done) {
          break;
        }
        parts.push(value);
        got += value.byteLength;
        progress.value = size > 0 ? got / size : 0;
      }
      const url = URL.createObjectURL(new Blob(parts, { type: 'video/mp4' }));
      save(url, name);
      setTimeout(() => URL.revokeObjectURL(url), 60000);
      said.textContent = `${name}, ${(got / 1e6).toFixed(1)} MB`;
    } catch (error) {
      said.textContent = error.message;
    } finally {
      progress.hidden = true;
      link.focus();
    }
  }

  async #copy() {
    try {
      await navigator.clipboard.writeText(location.href);
      this.copied.textContent = 'Copied.';
    } catch {
      this.copied.textContent = 'The address of this page is the link.';
    }
  }
}

function save(url, name) {
  const anchor = element('a', { href: url, download: name });
  document.body.append(anchor);
  anchor.click();
  anchor.remove();
}
