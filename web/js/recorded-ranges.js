/** The contiguous ranges of recordings, as the API lists them; dates are ms since 1970. */

/**
 * @param {object} recording  of the API: one stream's
 * @returns {{start: number, end: number}[]}  in order
 */
export function rangesOf(recording) {
  return recording.ranges.map(({ start, end }) => ({ start: Date.parse(start), end: Date.parse(end) }))
    .sort((a, b) => a.start - b.start);
}

/**
 * What was known, with what was asked for again.
 * @param {{start: number, end: number}[]} known
 * @param {{start: number, end: number}[]} fresh  all that reach behind `from`
 * @param {number} from
 */
export function merged(known, fresh, from) {
  const first = fresh.length > 0 ? Math.min(from, fresh[0].start) : from;
  const kept = known.filter(({ start }) => start < first)
    .map(({ start, end }) => ({ start, end: Math.min(end, first) }))
    .filter(({ start, end }) => end > start);
  const all = [...kept, ...fresh];
  const joined = [];
  for (const range of all) {
    const last = joined[joined.length - 1];
    if (last && range.start <= last.end) {
      last.end = Math.max(last.end, range.end);
    } else {
      joined.push({ ...range });
    }
  }
  return joined;
}

/**
 * The begin of the range behind a date, or of the one that holds it or lies in front of it: what leads from range to range.
 * @param {{start: number, end: number}[][]} rows  of several cameras
 * @param {number} date
 * @param {1|-1} direction
 * @returns {number|null}
 */
export function nextBegin(rows, date, direction) {
  const starts = rows.flat().map(({ start }) => start);
  if (direction > 0) {
    return starts.filter((start) => start > date).sort((a, b) => a - b)[0] ?? null;
  }
  const before = starts.filter((start) => start < date).sort((a, b) => b - a);
  return before.find((start) => start < date - 1000) ?? before[0] ?? null;
}

/** The address of an interval as an MP4 file. */
export function exportPath(camera, stream, from, to) {
  const seconds = (date) => (date / 1000).toFixed(3);
  return `/api/v1/recordings/${camera}/export.mp4?start=${seconds(from)}&end=${seconds(to)}&stream=${stream}`;
}

/** A name that every file system takes; empty when nothing is left. */
export function fileName(text) {
  return text.normalize('NFC').replace(/[\p{C}/\\:*?"<>|]+/gu, ' ').replace(/\s+/g, ' ').replace(/^[.\s]+/, '').trim()
    .slice(0, 100);
}

/** A duration for people: "1:05", "2:00:05". */
export function durationText(ms) {
  const seconds = Math.max(0, Math.round(ms / 1000));
  const two = (number) => String(number).padStart(2, '0');
  const hours = Math.floor(seconds / 3600);
  const rest = `${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}`;
  return hours > 0 ? `${hours}:${rest}` : rest.replace(/^0/, '');
}
