/**
 * The microphone as blocks of PCMU (8 kHz, 20 ms each). Dispatches `block` events with the block and its level.
 */
export class Microphone extends EventTarget {
  /** @returns {string}  why there is no microphone on this page; empty: there may be one */
  static obstacle() {
    if (!globalThis.isSecureContext) {
      return 'Browsers permit the microphone on pages over HTTPS only: see tls of [http].';
    }
    return navigator.mediaDevices?.getUserMedia && globalThis.AudioWorkletNode
      ? '' : 'This browser does not let pages use the microphone.';
  }

  /**
   * Asks for the microphone, once; the user may have to permit it.
   * @throws {DOMException}
   */
  async open() {
    this.opening ??= this.#open().catch((error) => {
      this.close();
      throw error;
    });
    await this.opening;
    await this.context?.resume();
  }

  async #open() {
    this.stream = await navigator.mediaDevices.getUserMedia({
      audio: { channelCount: 1, echoCancellation: true, noiseSuppression: true, autoGainControl: true },
    });
    this.context = new AudioContext({ latencyHint: 'interactive' });
    await this.context.audioWorklet.addModule(new URL('./talk-worklet.js', import.meta.url));
    const source = this.context.createMediaStreamSource(this.stream);
    const node = new AudioWorkletNode(this.context, 'talk', { channelCount: 1, channelCountMode: 'explicit' });
    node.port.addEventListener('message', ({ data }) => this.dispatchEvent(new CustomEvent('block', { detail: data })));
    node.port.start();
    // Its output is silent: it is connected because nothing runs otherwise.
    source.connect(node).connect(this.context.destination);
  }

  /** Lets it go. */
  close() {
    this.stream?.getTracks().forEach((track) => track.stop());
    this.context?.close();
    this.stream = null;
    this.context = null;
    this.opening = null;
  }
}
