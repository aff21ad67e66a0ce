import { api } from './api.js';

/**
 * Who uses the page and what that user may do with every camera, as the server says.
 * @typedef {{user: string|null, rights: string[], mayChange: boolean, canLogIn: boolean}} Me
 */

let known = null;

/**
 * Asks the server once; after a failure again.
 * @returns {Promise<Me>}
 */
export function account() {
  known ??= api('me').catch((error) => {
    known = null;
    throw error;
  });
  return known;
}
