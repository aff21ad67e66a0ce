import { api } from './api.js';

/**
 * Who uses the page and what that user may do with every camera, as the server says.
 * @typedef {object} Me
 * @property {string|null} user
 * @property {string[]} rights
 * @property {boolean} mayChange  whether anything may be changed from here at all
 * @property {boolean} signedIn  on this page, and not by other means
 * @property {boolean} canSignIn  whether the server takes a password from here
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

/** The server is asked again: what it said may hold no more. */
export function forgetAccount() {
  known = null;
}

/**
 * The value of an Authorization header (RFC 7617).
 * @param {string} user
 * @param {string} password
 */
export function basicCredentials(user, password) {
  const bytes = new TextEncoder().encode(`${user}:${password}`);
  return `Basic ${btoa(String.fromCharCode(...bytes))}`;
}

/**
 * @param {string} user
 * @param {string} password
 */
export async function signIn(user, password) {
  await api('session', { method: 'POST', headers: { Authorization: basicCredentials(user, password) } });
  forgetAccount();
}

export async function signOut() {
  await api('session', { method: 'DELETE' });
  forgetAccount();
}
