// Min/max peaks fetched from the server per (source, frames, bins). An
// answer stays good once every frame it covers was decoded; before that,
// only until the source's next load event.
import { getPeaks } from './api.js';

const LIMIT = 400;

export class PeakCache {
  constructor(sources, stats) {
    this.sources = sources;
    this.stats = stats;
    this.entries = new Map();
    this.pending = new Map();
  }

  key(source, start, end, count) {
    return `${source}:${start}:${end}:${count}`;
  }

  // A usable answer, or null.
  get(source, start, end, count) {
    const key = this.key(source, start, end, count);
    const entry = this.entries.get(key);
    if (!entry) return null;
    const s = this.sources.get(source);
    if (entry.loaded >= end || !s || entry.generation === s.generation) {
      // Most recently used last, so the oldest go first.
      this.entries.delete(key);
      this.entries.set(key, entry);
      return entry;
    }
    return null;
  }

  // The last answer for the same request even if it is out of date, to
  // draw until the fresh one arrives.
  stale(source, start, end, count) {
    return this.entries.get(this.key(source, start, end, count)) || null;
  }

  fetch(source, start, end, count) {
    const key = this.key(source, start, end, count);
    if (this.pending.has(key)) return this.pending.get(key);
    const s = this.sources.get(source);
    const generation = s ? s.generation : 0;
    this.stats.peakRequests++;
    const promise = getPeaks(source, start, end, count)
      .then(({ peaks, loaded }) => {
        const entry = { peaks, loaded, generation };
        this.entries.set(key, entry);
        while (this.entries.size > LIMIT) this.entries.delete(this.entries.keys().next().value);
        return entry;
      })
      .catch(() => null)
      .finally(() => this.pending.delete(key));
    this.pending.set(key, promise);
    return promise;
  }
}
