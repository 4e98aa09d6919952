// The edit: a list of clips played one after another, kept as immutable
// states so that undo and redo are a matter of swapping states. Times in
// the page are seconds on the edit's own line (clips end to end; a
// crossfade only overlaps them in the played and exported sound). A clip's
// start and end are frames of its source, as the server wants them.

export function clipSeconds(clip, rate) {
  return (clip.end - clip.start) / rate;
}

export class Edit {
  constructor(rateOf) {
    this.rateOf = rateOf; // source id -> sample rate
    this.state = { clips: [], crossfade: 0 };
    this.undoStack = [];
    this.redoStack = [];
    this.version = 0;
  }

  get clips() { return this.state.clips; }
  get crossfade() { return this.state.crossfade; }
  get empty() { return this.state.clips.length === 0; }

  // Where each clip begins on the edit's line, and the whole length.
  layout() {
    const starts = [];
    let t = 0;
    for (const c of this.state.clips) {
      starts.push(t);
      t += clipSeconds(c, this.rateOf(c.source));
    }
    return { starts, total: t };
  }

  duration() { return this.layout().total; }

  // The clip that holds time t (the later one at a join), or -1.
  clipAt(t) {
    const { starts, total } = this.layout();
    if (!starts.length) return -1;
    if (t >= total) return starts.length - 1;
    for (let i = starts.length - 1; i >= 0; i--) if (t >= starts[i]) return i;
    return 0;
  }

  // A new edit: nothing to undo before it.
  reset(state) {
    this.state = state;
    this.undoStack = [];
    this.redoStack = [];
    this.version++;
  }

  apply(next) {
    this.undoStack.push(this.state);
    this.redoStack = [];
    this.state = next;
    this.version++;
  }

  undo() {
    if (!this.undoStack.length) return false;
    this.redoStack.push(this.state);
    this.state = this.undoStack.pop();
    this.version++;
    return true;
  }

  redo() {
    if (!this.redoStack.length) return false;
    this.undoStack.push(this.state);
    this.state = this.redoStack.pop();
    this.version++;
    return true;
  }

  // Clips cut at time t (nothing changes at a join or outside), and the
  // index of the first clip that starts at or after t.
  splitClips(clips, t) {
    const out = [];
    let pos = 0;
    for (const c of clips) {
      const rate = this.rateOf(c.source);
      const len = clipSeconds(c, rate);
      const f = c.start + Math.round((t - pos) * rate);
      if (t > pos && t < pos + len && f > c.start && f < c.end) {
        out.push({ ...c, end: f, fade_out: 0 }, { ...c, start: f, fade_in: 0 });
      } else {
        out.push(c);
      }
      pos += len;
    }
    let at = out.length;
    pos = 0;
    for (let k = 0; k < out.length; k++) {
      const rate = this.rateOf(out[k].source);
      if (pos >= t - 0.5 / rate - 1e-9) { at = k; break; }
      pos += clipSeconds(out[k], rate);
    }
    return { clips: out, at };
  }

  // The clips after splitting at a and at b, and the indices [i, j) of
  // those inside [a, b).
  range(a, b) {
    const first = this.splitClips(this.state.clips, a);
    const second = this.splitClips(first.clips, b);
    return { clips: second.clips, i: first.at, j: second.at };
  }

  split(t) {
    const { clips } = this.splitClips(this.state.clips, t);
    if (clips.length === this.state.clips.length) return false;
    this.apply({ ...this.state, clips });
    return true;
  }

  copy(a, b) {
    if (!(b > a)) return [];
    const { clips, i, j } = this.range(a, b);
    return clips.slice(i, j).map((c) => ({ ...c }));
  }

  remove(a, b) {
    if (!(b > a)) return false;
    const { clips, i, j } = this.range(a, b);
    if (j <= i) return false;
    this.apply({ ...this.state, clips: clips.slice(0, i).concat(clips.slice(j)) });
    return true;
  }

  // Pasted clips replace [a, b) (when b > a) or go in at a.
  insert(a, b, pieces) {
    if (!pieces.length) return false;
    let clips;
    let i;
    if (b > a) {
      const r = this.range(a, b);
      clips = r.clips.slice(0, r.i).concat(r.clips.slice(r.j));
      i = r.i;
    } else {
      const s = this.splitClips(this.state.clips, a);
      clips = s.clips;
      i = s.at;
    }
    const copies = pieces.map((c) => ({ ...c }));
    this.apply({ ...this.state, clips: clips.slice(0, i).concat(copies, clips.slice(i)) });
    return true;
  }

  // Moves clip `from` so that it becomes clip `to` (indices of the list
  // after the move).
  move(from, to) {
    const clips = this.state.clips.slice();
    if (from < 0 || from >= clips.length) return false;
    to = Math.max(0, Math.min(clips.length - 1, to));
    if (to === from) return false;
    const [c] = clips.splice(from, 1);
    clips.splice(to, 0, c);
    this.apply({ ...this.state, clips });
    return true;
  }

  setClip(index, changes) {
    const c = this.state.clips[index];
    if (!c) return false;
    const rate = this.rateOf(c.source);
    const len = clipSeconds(c, rate);
    const next = { ...c, ...changes };
    next.fade_in = Math.max(0, Math.min(len, Number(next.fade_in) || 0));
    next.fade_out = Math.max(0, Math.min(len, Number(next.fade_out) || 0));
    next.gain_db = Math.max(-60, Math.min(24, Number(next.gain_db) || 0));
    if (next.fade_in === c.fade_in && next.fade_out === c.fade_out && next.gain_db === c.gain_db) return false;
    const clips = this.state.clips.slice();
    clips[index] = next;
    this.apply({ ...this.state, clips });
    return true;
  }

  setCrossfade(seconds) {
    const x = Math.max(0, Number(seconds) || 0);
    if (x === this.state.crossfade) return false;
    this.apply({ ...this.state, crossfade: x });
    return true;
  }

  // A source's length became known: clips that ran to its old end run to
  // the new one, in every state (it is a fact, not an edit).
  sourceLength(source, oldFrames, frames) {
    if (oldFrames === frames) return;
    const fix = (s) => {
      if (!s.clips.some((c) => c.source === source && (c.end === oldFrames || c.end > frames))) return s;
      return {
        ...s,
        clips: s.clips
          .map((c) => (c.source !== source ? c : { ...c, end: c.end === oldFrames ? frames : Math.min(c.end, frames) }))
          .filter((c) => c.end > c.start),
      };
    };
    this.state = fix(this.state);
    this.undoStack = this.undoStack.map(fix);
    this.redoStack = this.redoStack.map(fix);
    this.version++;
  }

  // What the server's /api/list and /api/export take.
  body() {
    return {
      clips: this.state.clips.map((c) => ({
        source: c.source, start: c.start, end: c.end,
        gain_db: c.gain_db, fade_in: c.fade_in, fade_out: c.fade_out,
      })),
      crossfade: this.state.crossfade,
    };
  }

  // Edit time -> time in the played sound, where each join after the
  // first clip overlaps by the crossfade; and back.
  toOutput(t) {
    const i = this.clipAt(t);
    if (i < 0) return 0;
    return Math.max(0, t - i * this.effectiveCrossfade());
  }

  fromOutput(o) {
    const { starts } = this.layout();
    const x = this.effectiveCrossfade();
    for (let i = starts.length - 1; i >= 0; i--) {
      if (o >= starts[i] - i * x) return o + i * x;
    }
    return o;
  }

  effectiveCrossfade() {
    return this.state.clips.length > 1 ? this.state.crossfade : 0;
  }
}

export function newClip(source, frames) {
  return { source, start: 0, end: frames, gain_db: 0, fade_in: 0, fade_out: 0 };
}
