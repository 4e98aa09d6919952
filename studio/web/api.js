// The server's API (same origin; the token travels in the cookie the
// first visit set). Errors come back as {"error": "words"}.

export class ApiError extends Error {
  constructor(status, body) {
    super((body && body.error) || `HTTP ${status}`);
    this.status = status;
    this.body = body || {};
  }
}

async function answer(response) {
  let body = null;
  const text = await response.text();
  try { body = text ? JSON.parse(text) : {}; } catch { body = { error: text }; }
  if (!response.ok) throw new ApiError(response.status, body);
  return body;
}

export async function getJson(path) {
  return answer(await fetch(path, { credentials: 'same-origin' }));
}

export async function postJson(path, body) {
  return answer(await fetch(path, {
    method: 'POST',
    credentials: 'same-origin',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify(body || {}),
  }));
}

// min/max pairs as int16, and how many frames of the source were decoded
// when the server answered.
export async function getPeaks(source, start, end, count, signal) {
  const url = `/api/peaks?source=${source}&start=${start}&end=${end}&count=${count}`;
  const response = await fetch(url, { credentials: 'same-origin', signal });
  if (!response.ok) throw new ApiError(response.status, null);
  const buffer = await response.arrayBuffer();
  const loaded = Number(response.headers.get('X-Frames-Loaded'));
  return { peaks: new Int16Array(buffer, 0, Math.floor(buffer.byteLength / 2)), loaded };
}

// One stream of server-sent events per tab; handlers by event name.
export function listen(handlers) {
  const source = new EventSource('/api/events');
  for (const [name, handler] of Object.entries(handlers)) {
    source.addEventListener(name, (event) => {
      let data = {};
      try { data = JSON.parse(event.data); } catch { return; }
      handler(data);
    });
  }
  return source;
}
