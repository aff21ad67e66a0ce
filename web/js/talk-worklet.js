import { Downsampler } from './downsampler.js';
import { encode } from './pcmu.js';

const rate = 8000;
const blockSamples = 160; // 20 ms

/** Makes blocks of PCMU from the microphone, and says how loud each is. Runs on the browser's audio thread. */
class TalkProcessor extends AudioWorkletProcessor {
  constructor() {
    super();
    this.downsampler = new Downsampler(sampleRate, rate);
    this.block = new Float32Array(blockSamples);
    this.filled = 0;
  }

  process([input]) {
    if (input.length > 0) {
      for (const sample of this.downsampler.add(input[0])) {
        this.block[this.filled] = sample;
        if (++this.filled === blockSamples) {
          this.#send();
        }
      }
    }
    return true;
  }

  #send() {
    const power = this.block.reduce((sum, sample) => sum + sample * sample, 0) / blockSamples;
    const { buffer } = encode(this.block);
    this.port.postMessage({ audio: buffer, level: Math.sqrt(power) }, [buffer]);
    this.filled = 0;
  }
}

registerProcessor('talk', TalkProcessor);
