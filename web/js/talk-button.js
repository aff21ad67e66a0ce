import { talkUrl } from './api.js';
import { element } from './elements.js';
import { Microphone } from './microphone.js';
import { Talk } from './talk.js';

/** How long the microphone stays open after a hold, so that the next one starts at once. */
const microphoneRest = 10000;

const texts = {
  idle: () => '',
  opening: () => 'Connecting…',
  audible: () => 'They can hear you.',
  waiting: ({ by }) => (by ? `${by} is talking.` : 'They cannot hear you yet.'),
  failed: ({ detail }) => detail,
};

/** A button that talks to a camera while it is held, by pointer or keyboard, with the level and who is audible. */
export class TalkButton {
  /** @param {{id: number, name: string}} camera */
  constructor(camera) {
    this.status = element('span', { role: 'status', class: 'talk-status' });
    this.level = element('meter', { min: '0', max: '1', value: '0', 'aria-label': 'Microphone level' });
    this.level.hidden = true;
    const obstacle = Microphone.obstacle();
    this.button = element('button', { type: 'button', class: 'talk', 'aria-pressed': 'false',
      disabled: obstacle !== '' }, 'Hold to talk');
    this.element = element('span', { class: 'talk-back' }, this.button, this.level, this.status);
    if (obstacle) {
      this.status.textContent = obstacle;
      return;
    }
    this.microphone = new Microphone();
    this.microphone.addEventListener('block', ({ detail }) => {
      // Speech has some -30 dB: the meter's middle.
      this.level.value = detail.level > 0 ? Math.max(0, 1 + Math.log10(detail.level) / 3) : 0;
    });
    this.talk = new Talk(talkUrl(camera.id), { microphone: this.microphone });
    this.talk.addEventListener('change', () => this.#show());
    this.#listen();
  }

  end() {
    this.#release();
    clearTimeout(this.rest);
    this.microphone?.close();
    removeEventListener('blur', this.onBlur);
  }

  #listen() {
    const { button } = this;
    const isKey = ({ key }) => key === ' ' || key === 'Enter';
    button.addEventListener('pointerdown', (event) => {
      if (event.button === 0) {
        button.setPointerCapture(event.pointerId);
        this.#hold();
      }
    });
    for (const name of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) {
      button.addEventListener(name, () => this.#release());
    }
    button.addEventListener('contextmenu', (event) => event.preventDefault()); // a long touch
    button.addEventListener('keydown', (event) => {
      if (isKey(event)) {
        event.preventDefault();
        this.#hold();
      }
    });
    button.addEventListener('keyup', (event) => {
      if (isKey(event)) {
        event.preventDefault();
        this.#release();
      }
    });
    this.onBlur = () => this.#release();
    addEventListener('blur', this.onBlur);
  }

  #hold() {
    if (!this.talk.held) {
      clearTimeout(this.rest);
      this.talk.start();
    }
  }

  #release() {
    if (this.talk?.held) {
      this.talk.stop();
      this.rest = setTimeout(() => this.microphone.close(), microphoneRest);
    }
  }

  #show() {
    const { state } = this.talk;
    this.button.setAttribute('aria-pressed', String(this.talk.held));
    this.level.hidden = !this.talk.held;
    this.status.textContent = texts[state](this.talk);
    this.element.dataset.state = state;
  }
}
