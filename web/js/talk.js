/**
 * One camera's talk-back: what the microphone hears goes to the camera while a key or button is held.
 *
 * Each hold is a connection of its own, so that nobody has the floor who says nothing. Audio of the time until it is open
 * is kept, up to a bound. Dispatches `change` events when `state`, `by` or `detail` change.
 */
export class Talk extends EventTarget {
  static maxWaiting = 50; // blocks, until the connection is open
  static maxUnsent = 8000; // bytes that the network has not taken: a second

  /**
   * @param {string} url  ws: or wss:
   * @param {object} options
   * @param {EventTarget & {open(): Promise<void>, close(): void}} options.microphone
   * @param {(url: string) => WebSocket} [options.connect]
   */
  constructor(url, { microphone, connect = (to) => new WebSocket(to) }) {
    super();
    this.url = url;
    this.microphone = microphone;
    this.connect = connect;
    /** @type {'idle'|'opening'|'audible'|'waiting'|'failed'} */
    this.state = 'idle';
    this.by = ''; // who is audible instead
    this.detail = ''; // why it failed
    this.held = false;
    this.dropped = 0; // blocks
    microphone.addEventListener('block', ({ detail }) => this.#send(detail.audio));
  }

  async start() {
    if (this.held) {
      return;
    }
    this.held = true;
    this.waiting = [];
    this.#enter('opening');
    try {
      await this.microphone.open();
    } catch {
      this.#fail('The microphone is not there, or was not permitted.');
      return;
    }
    if (this.held && !this.socket) {
      this.#connect();
    }
  }

  stop() {
    this.held = false;
    this.waiting = [];
    const socket = this.socket;
    this.socket = null;
    if (socket?.readyState === 0) {
      // Browsers warn of one that is closed before it is open.
      socket.addEventListener('open', () => socket.close());
    } else {
      socket?.close();
    }
    if (this.state !== 'failed') {
      this.#enter('idle');
    }
  }

  #connect() {
    const socket = this.connect(this.url);
    this.socket = socket;
    const own = (handler) => (event) => {
      if (this.socket === socket) {
        handler(event);
      }
    };
    socket.addEventListener('open', own(() => this.waiting.splice(0).forEach((block) => this.#send(block))));
    socket.addEventListener('message', own(({ data }) => this.#onMessage(JSON.parse(data))));
    socket.addEventListener('close', own(() => this.#fail('The connection ended.')));
  }

  #onMessage(message) {
    if (message.type === 'floor') {
      this.#enter(message.audible ? 'audible' : 'waiting', message.by ?? '');
    } else if (message.type === 'refused') {
      this.#fail(message.detail);
    }
  }

  #send(block) {
    if (!this.held) {
      return;
    }
    if (this.socket?.readyState !== 1) {
      this.waiting.push(block);
      this.dropped += this.waiting.length > Talk.maxWaiting ? 1 : 0;
      this.waiting = this.waiting.slice(-Talk.maxWaiting);
    } else if (this.socket.bufferedAmount > Talk.maxUnsent) {
      ++this.dropped;
    } else {
      this.socket.send(block);
    }
  }

  #fail(detail) {
    this.#enter('failed', '', detail);
    this.stop();
  }

  #enter(state, by = '', detail = '') {
    if (this.state !== state || this.by !== by || this.detail !== detail) {
      Object.assign(this, { state, by, detail });
      this.dispatchEvent(new Event('change'));
    }
  }
}
