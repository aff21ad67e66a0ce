/**
 * Brings audio to a lower sample rate: a windowed sinc removes what the lower rate cannot carry.
 */
export class Downsampler {
  /**
   * @param {number} from  Hz
   * @param {number} to  Hz; at most `from`
   */
  constructor(from, to) {
    this.step = from / to; // input samples for each output sample
    this.kernel = new Kernel(0.45 / this.step, Math.ceil(24 * this.step));
    this.kept = new Float32Array(2 * this.kernel.half); // input that later output needs; silence at first
    this.position = this.kernel.half; // of the next output sample, in `kept` and what follows it
  }

  /**
   * @param {Float32Array} input  of any length
   * @returns {Float32Array}  what it completes
   */
  add(input) {
    const all = new Float32Array(this.kept.length + input.length);
    all.set(this.kept);
    all.set(input, this.kept.length);
    const { half } = this.kernel;
    const output = [];
    for (; this.position + half < all.length; this.position += this.step) {
      output.push(this.kernel.at(all, this.position));
    }
    // The next sample needs `half` samples in front of it.
    const used = Math.max(0, Math.min(all.length, Math.floor(this.position) - half));
    this.kept = all.slice(used);
    this.position -= used;
    return Float32Array.from(output);
  }
}

/** A low-pass filter that is known at fractions of a sample. */
class Kernel {
  static fractions = 64;

  /**
   * @param {number} cutoff  as a share of the sample rate
   * @param {number} half  samples on each side
   */
  constructor(cutoff, half) {
    this.half = half;
    this.values = new Float64Array((half + 1) * Kernel.fractions + 2);
    for (let i = 0; i <= half * Kernel.fractions; ++i) {
      const x = i / Kernel.fractions;
      const sinc = x === 0 ? 2 * cutoff : Math.sin(2 * Math.PI * cutoff * x) / (Math.PI * x);
      const at = (Math.PI * x) / half;
      this.values[i] = sinc * (0.42 + 0.5 * Math.cos(at) + 0.08 * Math.cos(2 * at)); // Blackman
    }
  }

  /** The filtered signal at a position between two samples. */
  at(samples, position) {
    let sum = 0;
    const first = Math.ceil(position - this.half);
    const last = Math.floor(position + this.half);
    for (let k = first; k <= last; ++k) {
      const place = Math.abs(k - position) * Kernel.fractions;
      const index = Math.floor(place);
      const part = place - index;
      sum += samples[k] * (this.values[index] * (1 - part) + this.values[index + 1] * part);
    }
    return sum;
  }
}
