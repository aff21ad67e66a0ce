/**
 * What a key does on the timeline.
 * @param {{key: string, shiftKey: boolean, ctrlKey?: boolean, altKey?: boolean, metaKey?: boolean}} event
 * @param {number} length  ms that are in sight
 * @returns {{action: string, value?: number}|null}  "step": ms to go; "range": to the next begin in that direction; "zoom":
 *     times as much in sight; "play"; "first"; "last"; "mark": 0 for the begin, 1 for the end. null: nothing
 */
export function keyAction(event, length) {
  if (event.ctrlKey || event.altKey || event.metaKey) {
    return null;
  }
  const step = event.shiftKey ? length / 10 : Math.max(1000, length / 100);
  switch (event.key) {
    case 'ArrowLeft': case 'ArrowDown': return { action: 'step', value: -step };
    case 'ArrowRight': case 'ArrowUp': return { action: 'step', value: step };
    case 'PageUp': return { action: 'range', value: -1 };
    case 'PageDown': return { action: 'range', value: 1 };
    case '+': case '=': return { action: 'zoom', value: 0.5 };
    case '-': case '_': return { action: 'zoom', value: 2 };
    case 'Home': return { action: 'first' };
    case 'End': return { action: 'last' };
    case ' ': case 'k': return { action: 'play' };
    case 'i': case '[': return { action: 'mark', value: 0 };
    case 'o': case ']': return { action: 'mark', value: 1 };
    default: return null;
  }
}
