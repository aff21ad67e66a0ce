/** The server's answer was no success. */
export class ApiError extends Error {
  /**
   * @param {number} status  of HTTP; 0: no answer
   * @param {string} message  a sentence for people
   */
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

/** Says that a script of this page sends a request: then the server leaves it to the page to ask for a password. */
export const pageHeader = { 'X-Requested-With': 'page' };

/**
 * Asks the server's API.
 * @param {string} path  below /api/v1/
 * @param {object} [options]
 * @param {string} [options.method]
 * @param {object} [options.body]  sent as JSON
 * @param {object} [options.headers]
 * @returns {Promise<object|null>}  the answer's JSON; null without a body
 */
export async function api(path, { method = 'GET', body, headers = {} } = {}) {
  let response;
  try {
    response = await fetch(`/api/v1/${path}`, {
      method,
      headers: { ...pageHeader, ...(method === 'GET' ? {} : { 'Content-Type': 'application/json' }), ...headers },
      body: body === undefined ? undefined : JSON.stringify(body),
      signal: AbortSignal.timeout(10000),
    });
  } catch {
    throw new ApiError(0, 'The server does not answer.');
  }
  if (!response.ok) {
    const problem = await response.json().catch(() => ({}));
    throw new ApiError(response.status, problem.detail ?? response.statusText);
  }
  return response.status === 204 ? null : response.json();
}

/** The address of a stream's live WebSocket. */
export function liveUrl(camera, stream, { audio = false } = {}) {
  const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
  return `${scheme}//${location.host}/api/v1/cameras/${camera}/streams/${stream}/live${audio ? '' : '?audio=0'}`;
}

/**
 * The address of a WebSocket with a stream's recordings.
 * @param {number} start  ms since 1970
 * @param {number} speed  negative: backwards
 */
export function recordedUrl(camera, stream, start, speed) {
  const url = liveUrl(camera, stream);
  return `${url}&start=${(Math.max(0, start) / 1000).toFixed(3)}&speed=${speed}&ahead=${6 * Math.max(1, Math.abs(speed))}`;
}

/** The address of a camera's talk-back WebSocket. */
export function talkUrl(camera) {
  const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
  return `${scheme}//${location.host}/api/v1/cameras/${camera}/talk`;
}
