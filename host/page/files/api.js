// Talks to the administration. The credentials live here, in memory, and nowhere else.

let authorization = null;

/** What the server answered instead of what was asked: RFC 9457. */
export class Problem extends Error {
  constructor(status, body) {
    super(body?.detail ?? `The server answered with status ${status}.`);
    this.status = status;
    this.body = body ?? {};
  }
}

/** Remembers who asks from now on, until the page is left or `forget`. */
export function remember(user, password) {
  const bytes = new TextEncoder().encode(`${user}:${password}`);
  authorization = `Basic ${btoa(String.fromCharCode(...bytes))}`;
}

export function forget() {
  authorization = null;
}

export function isRemembered() {
  return authorization !== null;
}

/** An id as one segment of a path: escaped are just those bytes that a path cannot hold (RFC 3986). */
export function segment(id) {
  const text = typeof id === 'string' ? encodeURIComponent(id) : '%00';
  const path = text.replace(/%(24|26|2B|2C|3A|3D|40)/g, decodeURIComponent);
  if (path === '' || path === '.' || path === '..' || /%(2F|5C|25|3F|23|3B|0.|1.|7F)/.test(path)) {
    throw new Problem(400, {detail: 'A path cannot carry this id: manage it with the command line tool.'});
  }
  return path;
}

/** One request. Gives {status, body, etag}; throws a `Problem`. */
export async function call(method, path, {query, body, etag} = {}) {
  // The header keeps the browser's own dialog away; a client certificate goes along by itself.
  const headers = {'X-Requested-With': 'perenna-page'};
  if (authorization !== null) {
    headers.Authorization = authorization;
  }
  if (body !== undefined) {
    headers['Content-Type'] = 'application/json';
  }
  if (etag !== undefined) {
    headers['If-Match'] = etag;
  }
  const parameters = new URLSearchParams();
  for (const [name, value] of Object.entries(query ?? {})) {
    if (value !== undefined && value !== '' && value !== false) {
      parameters.set(name, value);
    }
  }
  const target = parameters.size > 0 ? `${path}?${parameters}` : path;
  let response;
  try {
    response = await fetch(target, {
      method, headers, cache: 'no-store', credentials: 'same-origin', redirect: 'error',
      body: body === undefined ? undefined : typeof body === 'string' ? body : JSON.stringify(body),
    });
  } catch {
    throw new Problem(0, {detail: 'The server does not answer.'});
  }
  window.dispatchEvent(new CustomEvent('directory-age', {detail: response.headers.get('X-Directory-Age')}));
  const text = await response.text();
  let json = null;
  try {
    json = text === '' ? null : JSON.parse(text);
  } catch {
    json = {detail: 'The server did not answer with JSON.'};
  }
  if (!response.ok) {
    throw new Problem(response.status, json);
  }
  return {status: response.status, body: json, etag: response.headers.get('ETag') ?? undefined};
}

export const get = async (path, query) => (await call('GET', path, {query})).body;
