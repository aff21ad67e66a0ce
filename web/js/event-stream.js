import { pageHeader } from './api.js';
import { Backoff } from './backoff.js';

/**
 * Splits server-sent events (HTML, "Server-sent events") from a text that comes in blocks.
 */
export class EventParser {
  static maxWaiting = 64 * 1024; // characters of an event that is not complete

  constructor() {
    this.text = '';
  }

  /**
   * @param {string} text
   * @returns {{name: string, data: string}[]}  the events that it completes
   * @throws {RangeError}  an event is too long
   */
  add(text) {
    this.text += text;
    const blocks = this.text.split('\n\n');
    this.text = blocks.pop();
    if (this.text.length > EventParser.maxWaiting) {
      throw new RangeError('an event is too long');
    }
    const events = [];
    for (const block of blocks) {
      const event = { name: 'message', data: [] };
      for (const line of block.split('\n')) {
        const [, field, value] = /^([^:]*):? ?(.*)$/.exec(line);
        if (field === 'event') {
          event.name = value;
        } else if (field === 'data') {
          event.data.push(value);
        }
      }
      if (event.data.length > 0) {
        events.push({ name: event.name, data: event.data.join('\n') });
      }
    }
    return events;
  }
}

/**
 * Follows the server's events, and connects again by itself. Not an EventSource: that passes on only events whose names
 * were known before.
 */
export class ServerEventStream {
  /**
   * @param {(event: {name: string, data: object}) => void} onEvent
   * @param {(state: string) => void} onState  "open", "lost" or "refused"; after the last one nothing follows
   * @param {object} [options]
   * @param {Backoff} [options.backoff]
   */
  constructor(onEvent, onState, { backoff = new Backoff() } = {}) {
    this.onEvent = onEvent;
    this.onState = onState;
    this.backoff = backoff;
    this.controller = new AbortController();
    this.#follow();
  }

  end() {
    this.controller.abort();
  }

  async #follow() {
    while (!this.controller.signal.aborted) {
      const refused = await this.#connect().catch(() => false);
      if (this.controller.signal.aborted) {
        return;
      }
      this.onState(refused ? 'refused' : 'lost');
      if (refused) {
        return;
      }
      await new Promise((resolve) => { setTimeout(resolve, this.backoff.next()); });
    }
  }

  /** @returns {Promise<boolean>}  whether the server refused, which further attempts do not change */
  async #connect() {
    const response = await fetch('/api/v1/events', { headers: pageHeader, signal: this.controller.signal });
    if (!response.ok) {
      return response.status === 401 || response.status === 403;
    }
    this.onState('open');
    this.backoff.reset();
    const parser = new EventParser();
    const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
    for (;;) {
      const { value, done } = await reader.read();
      if (done) {
        return false;
      }
      for (const { name, data } of parser.add(value)) {
        this.onEvent({ name, data: JSON.parse(data) });
      }
    }
  }
}
