/**
 * An element with attributes and children. Attributes that are null or false are left out; "on…" are listeners;
 * texts become text nodes, never HTML.
 * @param {string} name
 * @param {object} [attributes]
 * @param {...(Node|string|null)} children
 * @returns {HTMLElement}
 */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === null || value === undefined || value === false) {
      continue;
    }
    if (key.startsWith('on')) {
      made.addEventListener(key.slice(2), value);
    } else if (key in made && typeof value === 'boolean') {
      made[key] = value;
    } else {
      made.setAttribute(key, value);
    }
  }
  made.append(...children.filter((child) => child !== null));
  return made;
}

/**
 * A table with a caption.
 * @param {string} caption
 * @param {string[]} columns
 * @param {(Node|string)[][]} rows
 */
export function table(caption, columns, rows) {
  return element('div', { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': caption },
    element('table', {},
      element('caption', {}, caption),
      element('thead', {}, element('tr', {}, ...columns.map((name) => element('th', { scope: 'col' }, name)))),
      element('tbody', {}, ...rows.map((cells) => element('tr', {}, ...cells.map((cell) => element('td', {}, cell)))))));
}
