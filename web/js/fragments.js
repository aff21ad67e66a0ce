/**
 * What a live WebSocket sends: a text message that describes the stream, the init segment, then one MP4 fragment in
 * each binary message. A fragment begins with a `prft` box, which says when its frame was captured.
 */

const epoch1900 = 2208988800; // seconds from 1900, where NTP begins, to 1970

/**
 * The boxes at the top of some bytes of MP4 (ISO/IEC 14496-12, section 4.2). Ends at a box that is not whole.
 * @param {ArrayBuffer} bytes
 * @returns {Generator<{type: string, start: number, end: number}>}  `start` is that of the box's contents
 */
export function* boxes(bytes) {
  const view = new DataView(bytes);
  for (let at = 0; at + 8 <= view.byteLength;) {
    const size = view.getUint32(at);
    if (size < 8 || at + size > view.byteLength) {
      return;
    }
    const type = String.fromCharCode(...new Uint8Array(bytes, at + 4, 4));
    yield { type, start: at + 8, end: at + size };
    at += size;
  }
}

/**
 * When a fragment's frame was captured.
 * @param {ArrayBuffer} fragment
 * @returns {{track: number, wall: number, media: number}|null}  wall: ms since 1970; media: in units of the track's
 *     timescale; null when the fragment does not say
 */
export function captureTime(fragment) {
  const view = new DataView(fragment);
  for (const { type, start, end } of boxes(fragment)) {
    if (type !== 'prft' || end - start < 24) {
      continue;
    }
    const seconds = view.getUint32(start + 8) - epoch1900;
    const fraction = view.getUint32(start + 12) / 2 ** 32;
    const version = view.getUint8(start);
    return {
      track: view.getUint32(start + 4),
      wall: (seconds + fraction) * 1000,
      media: version === 0 ? view.getUint32(start + 16) : Number(view.getBigUint64(start + 16)),
    };
  }
  return null;
}
