/**
 * PCMU, the mu-law of ITU-T G.711: 8 bits for a sample, with the resolution where speech is.
 */

const bias = 132;
const clip = 32635;

/**
 * @param {number} sample  from -1 to 1; beyond, it is clipped
 * @returns {number}  a byte
 */
export function encodeSample(sample) {
  const scaled = Math.round(sample * 32768);
  const magnitude = Math.min(Math.abs(scaled), clip) + bias;
  const exponent = 24 - Math.clz32(magnitude); // 7 for the loudest: 31 - clz32 is the highest bit's number
  const mantissa = (magnitude >> (exponent + 3)) & 0x0f;
  return ~((scaled < 0 ? 0x80 : 0) | (exponent << 4) | mantissa) & 0xff;
}

/**
 * @param {Float32Array} samples
 * @returns {Uint8Array}
 */
export function encode(samples) {
  return Uint8Array.from(samples, encodeSample);
}
