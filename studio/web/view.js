// Draws the edit: a zoomable view with a time axis and an overview of the
// whole edit. Peaks are asked for the visible part only, one bin per
// canvas pixel of each clip, or one per sample once a sample is wider
// than a pixel; nothing is decoded here.
import { clipSeconds } from './edit.js';

const COLORS = {
  back: '#15181d', clipA: '#1d232b', clipB: '#1a2027', head: '#262e38', headText: '#b8c4d2',
  wave: '#4fb3ff', waveDim: '#2b5c82', loading: '#242a31', axis: '#8793a1', grid: '#2a3038',
  sel: 'rgba(255, 214, 102, 0.22)', selEdge: '#ffd666', cursor: '#f4f6f8', play: '#ff5c5c',
  fade: '#ffd666', join: '#0d0f12', view: 'rgba(79, 179, 255, 0.18)', viewEdge: '#4fb3ff',
  silence: 'rgba(186, 140, 255, 0.28)',
};
const STEPS = [1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30,
  60, 120, 300, 600, 900, 1800, 3600, 7200];

export function formatTime(t, step = 0.001) {
  const sign = t < 0 ? '-' : '';
  t = Math.abs(t);
  const h = Math.floor(t / 3600);
  const m = Math.floor((t % 3600) / 60);
  const s = t % 60;
  const digits = step >= 1 ? 0 : Math.min(4, Math.ceil(-Math.log10(step) - 1e-9));
  let sec = s.toFixed(digits);
  if (Number(sec) >= 60) sec = (59.9999).toFixed(digits);
  if (Number(sec) < 10) sec = `0${sec}`;
  return h ? `${sign}${h}:${String(m).padStart(2, '0')}:${sec}` : `${sign}${m}:${sec}`;
}

export class WaveformView {
  constructor(canvas, overview, app) {
    this.canvas = canvas;
    this.overview = overview;
    this.app = app;
    this.v0 = 0; // seconds at the left edge
    this.spp = 0.01; // seconds per canvas pixel
    this.seq = 0;
    this.pendingSince = null;
    this.pendingReason = '';
    this.scheduled = false;
    this.fitted = true;
  }

  get dpr() { return window.devicePixelRatio || 1; }

  // Canvas pixels follow the layout; the view keeps its span in seconds.
  resize() {
    const old = this.canvas.width;
    for (const c of [this.canvas, this.overview]) {
      const w = Math.max(1, Math.round(c.clientWidth * this.dpr));
      const h = Math.max(1, Math.round(c.clientHeight * this.dpr));
      if (c.width !== w || c.height !== h) { c.width = w; c.height = h; }
    }
    if (old > 1 && this.canvas.width !== old) this.spp *= old / this.canvas.width;
  }

  get width() { return this.canvas.width; }
  get axisHeight() { return Math.round(22 * this.dpr); }
  get headHeight() { return Math.round(18 * this.dpr); }

  timeAtX(cssX) { return this.v0 + cssX * this.dpr * this.spp; }
  xOfTime(t) { return (t - this.v0) / this.spp / this.dpr; }
  inHeader(cssY) {
    const y = cssY * this.dpr;
    return y >= this.axisHeight && y < this.axisHeight + this.headHeight;
  }

  maxRate() {
    let r = 8000;
    for (const c of this.app.edit.clips) r = Math.max(r, this.app.rateOf(c.source));
    return r;
  }

  limits() {
    const total = Math.max(this.app.edit.duration(), 0.001);
    return { min: 1 / (this.maxRate() * 32), max: total / Math.max(1, this.width), total };
  }

  // Keeps the view inside the edit; marks a redraw the benchmark times.
  setView(v0, spp, reason) {
    const { min, max, total } = this.limits();
    spp = Math.min(max, Math.max(min, spp));
    const span = spp * this.width;
    v0 = Math.max(0, Math.min(v0, Math.max(0, total - span)));
    // A view of the whole edit stays so while the edit's length changes.
    this.fitted = spp >= max;
    if (v0 === this.v0 && spp === this.spp) return;
    this.v0 = v0;
    this.spp = spp;
    if (reason) {
      this.pendingSince = performance.now();
      this.pendingReason = reason;
    }
    this.draw();
  }

  fitAll() { this.setView(0, Infinity); }

  zoom(factor, aroundTime) {
    const span = this.spp * this.width;
    const t = aroundTime ?? this.v0 + span / 2;
    const frac = (t - this.v0) / span;
    const spp = this.spp * factor;
    this.setView(t - frac * spp * this.width, spp, factor < 1 ? 'zoom in' : 'zoom out');
  }

  scrollBy(fraction) {
    this.setView(this.v0 + fraction * this.spp * this.width, this.spp, 'scroll');
  }

  // Scrolls so that t is visible (with a margin), as the playhead moves.
  reveal(t) {
    const span = this.spp * this.width;
    if (t < this.v0 || t > this.v0 + span) this.setView(t - span * 0.1, this.spp, 'follow');
  }

  draw() {
    if (this.scheduled) return;
    this.scheduled = true;
    requestAnimationFrame(() => { this.scheduled = false; this.render(); });
  }

  // One entry per clip in [v0, v0 + span): pixels, frames and bins.
  jobs(v0, spp, width) {
    const edit = this.app.edit;
    const { starts } = edit.layout();
    const out = [];
    const v1 = v0 + spp * width;
    edit.clips.forEach((clip, index) => {
      const rate = this.app.rateOf(clip.source);
      const t0 = starts[index];
      const t1 = t0 + clipSeconds(clip, rate);
      if (t1 <= v0 || t0 >= v1) return;
      const x0 = Math.round((Math.max(t0, v0) - v0) / spp);
      const x1 = Math.min(width, Math.round((Math.min(t1, v1) - v0) / spp));
      const fa = Math.max(clip.start, Math.min(clip.end, clip.start + Math.floor((v0 + x0 * spp - t0) * rate)));
      const fb = Math.max(fa, Math.min(clip.end, clip.start + Math.ceil((v0 + x1 * spp - t0) * rate)));
      if (x1 <= x0 || fb <= fa) {
        out.push({ clip, index, t0, t1, x0, x1: Math.max(x0, x1), fa, fb, count: 0, rate });
        return;
      }
      const count = Math.min(65536, Math.min(x1 - x0, fb - fa));
      out.push({ clip, index, t0, t1, x0, x1, fa, fb, count, rate });
    });
    return out;
  }

  // Peaks for every job, from the cache; missing ones are fetched and
  // the view drawn again when they are all there.
  gather(jobs, seq, which) {
    const cache = this.app.peaks;
    const missing = [];
    let complete = true;
    for (const job of jobs) {
      if (!job.count) continue;
      job.entry = cache.get(job.clip.source, job.fa, job.fb, job.count);
      if (!job.entry) {
        complete = false;
        job.entry = cache.stale(job.clip.source, job.fa, job.fb, job.count);
        missing.push(cache.fetch(job.clip.source, job.fa, job.fb, job.count));
      }
    }
    if (missing.length) {
      Promise.all(missing).then(() => {
        if (which === 'main' ? seq === this.seq : true) this.draw();
      });
    }
    return complete;
  }

  render() {
    this.resize();
    const seq = ++this.seq;
    const { total } = this.limits();
    if ((this.fitted || this.spp * this.width > total * 1.0001) && total > 0.001) {
      this.spp = total / this.width;
      this.v0 = 0;
    }
    const jobs = this.jobs(this.v0, this.spp, this.width);
    const complete = this.gather(jobs, seq, 'main');
    // While a new resolution is on its way the old picture stays, unless
    // there is nothing better to show (the first draw, or a source still
    // loading, whose older answer is drawn).
    const anyEntry = jobs.some((j) => j.entry);
    if (complete || anyEntry || this.app.edit.empty) this.paintMain(jobs);
    const stats = this.app.stats;
    if (complete) {
      const now = performance.now();
      if (this.pendingSince !== null) {
        stats.redraws.push({ reason: this.pendingReason, ms: now - this.pendingSince });
        stats.lastRedrawMs = now - this.pendingSince;
        this.pendingSince = null;
      }
      if (stats.openAsked !== null && stats.firstWaveformMs === null && jobs.some((j) => j.entry && j.entry.loaded > 0)) {
        stats.firstWaveformMs = now - stats.openAsked;
      }
      stats.drawn++;
    }
    this.renderOverview();
  }

  paintMain(jobs) {
    const ctx = this.canvas.getContext('2d');
    const W = this.canvas.width;
    const H = this.canvas.height;
    const dpr = this.dpr;
    const top = this.axisHeight + this.headHeight;
    ctx.fillStyle = COLORS.back;
    ctx.fillRect(0, 0, W, H);
    this.paintAxis(ctx, W);
    for (const job of jobs) {
      ctx.fillStyle = job.index % 2 ? COLORS.clipB : COLORS.clipA;
      ctx.fillRect(job.x0, top, job.x1 - job.x0, H - top);
      ctx.fillStyle = COLORS.head;
      ctx.fillRect(job.x0, this.axisHeight, job.x1 - job.x0, this.headHeight);
      this.paintPeaks(ctx, job, top, H - top, this.v0, this.spp);
      this.paintFades(ctx, job, top, H - top, this.v0, this.spp);
      const x = Math.round((job.t0 - this.v0) / this.spp);
      if (x >= 0 && x < W) {
        ctx.fillStyle = COLORS.join;
        ctx.fillRect(x, this.axisHeight, Math.max(1, Math.round(2 * dpr)), H - this.axisHeight);
      }
      ctx.save();
      ctx.beginPath();
      ctx.rect(job.x0, this.axisHeight, job.x1 - job.x0, this.headHeight);
      ctx.clip();
      ctx.fillStyle = COLORS.headText;
      ctx.font = `${Math.round(11 * dpr)}px system-ui, sans-serif`;
      ctx.textBaseline = 'middle';
      const label = this.clipLabel(job.clip);
      ctx.fillText(label, Math.max(job.x0, x) + 6 * dpr, this.axisHeight + this.headHeight / 2);
      ctx.restore();
    }
    const regions = this.app.silenceRegions();
    this.app.stats.silenceRegions = regions;
    this.paintSilences(ctx, regions, W, top, H - top, this.v0, this.spp);
    this.paintJoins(ctx, top, H - top);
    this.paintMarks(ctx, W, H, this.v0, this.spp, this.axisHeight);
  }

  paintSilences(ctx, regions, W, top, height, v0, spp) {
    ctx.fillStyle = COLORS.silence;
    for (const [a, b] of regions) {
      const xa = Math.max(0, (a - v0) / spp);
      const xb = Math.min(W, (b - v0) / spp);
      if (xb > xa) ctx.fillRect(xa, top, Math.max(1, xb - xa), height);
    }
  }

  // Crossfades (the later clip starts that much earlier in the sound) and
  // where a dragged clip would go.
  paintJoins(ctx, top, height) {
    const edit = this.app.edit;
    const { starts, total } = edit.layout();
    const x = (t) => (t - this.v0) / this.spp;
    const xf = edit.effectiveCrossfade();
    ctx.strokeStyle = COLORS.fade;
    ctx.lineWidth = Math.max(1, this.dpr);
    ctx.beginPath();
    for (let i = 1; xf > 0 && i < starts.length; i++) {
      const a = x(starts[i] - xf);
      const b = x(starts[i]);
      ctx.moveTo(a, top);
      ctx.lineTo(b, top + height);
      ctx.moveTo(a, top + height);
      ctx.lineTo(b, top);
    }
    ctx.stroke();
    const drag = this.app.dragTarget;
    if (drag) {
      const at = drag.to > drag.from ? (drag.to + 1 < starts.length ? starts[drag.to + 1] : total) : starts[drag.to];
      ctx.fillStyle = COLORS.selEdge;
      ctx.fillRect(x(at) - 2 * this.dpr, this.axisHeight, 4 * this.dpr, this.headHeight + height);
    }
  }

  clipLabel(clip) {
    const s = this.app.sources.get(clip.source);
    let label = s ? s.name : `source ${clip.source}`;
    if (clip.gain_db) label += `  ${clip.gain_db > 0 ? '+' : ''}${clip.gain_db.toFixed(1)} dB`;
    return label;
  }

  paintAxis(ctx, W) {
    const dpr = this.dpr;
    const A = this.axisHeight;
    let step = STEPS[STEPS.length - 1];
    for (const s of STEPS) if (s / this.spp >= 90 * dpr) { step = s; break; }
    ctx.fillStyle = '#111418';
    ctx.fillRect(0, 0, W, A);
    ctx.strokeStyle = COLORS.grid;
    ctx.fillStyle = COLORS.axis;
    ctx.font = `${Math.round(10.5 * dpr)}px ui-monospace, monospace`;
    ctx.textBaseline = 'middle';
    ctx.lineWidth = 1;
    const first = Math.ceil(this.v0 / step) * step;
    const v1 = this.v0 + W * this.spp;
    ctx.beginPath();
    for (let t = first; t <= v1; t += step) {
      const x = Math.round((t - this.v0) / this.spp) + 0.5;
      ctx.moveTo(x, A - 6 * dpr);
      ctx.lineTo(x, A);
      ctx.fillText(formatTime(t, step), x + 3 * dpr, A / 2 - 2 * dpr);
      for (let k = 1; k < 5; k++) {
        const xm = Math.round((t + (k * step) / 5 - this.v0) / this.spp) + 0.5;
        ctx.moveTo(xm, A - 3 * dpr);
        ctx.lineTo(xm, A);
      }
    }
    ctx.stroke();
  }

  // Bins as vertical bars, or single samples as a line with dots; the
  // clip's gain and fades shape what is drawn as they shape the sound.
  paintPeaks(ctx, job, top, height, v0, spp) {
    if (!job.count || !job.entry) return;
    const { peaks } = job.entry;
    const mid = top + height / 2;
    const scale = (height / 2 - 2) / 32768;
    const s = this.app.sources.get(job.clip.source);
    const loadedFrame = s && !s.done ? Math.max(job.entry.loaded, 0) : Infinity;
    const gain = Math.pow(10, job.clip.gain_db / 20);
    const env = (frame) => gain * this.envelope(job, frame);
    const samples = job.count >= job.fb - job.fa;
    if (loadedFrame < job.fb) {
      const lx = Math.max(job.x0, job.x0 + ((loadedFrame - job.fa) / (job.fb - job.fa)) * (job.x1 - job.x0));
      ctx.fillStyle = COLORS.loading;
      ctx.fillRect(lx, top, job.x1 - lx, height);
    }
    const clamp = (y) => Math.max(top, Math.min(top + height, y));
    if (!samples) {
      ctx.fillStyle = COLORS.wave;
      const per = (job.fb - job.fa) / job.count;
      const bw = (job.x1 - job.x0) / job.count;
      for (let k = 0; k < job.count && 2 * k + 1 < peaks.length; k++) {
        const g = env(job.fa + (k + 0.5) * per);
        const lo = peaks[2 * k] * g;
        const hi = peaks[2 * k + 1] * g;
        const y0 = clamp(mid - hi * scale);
        const y1 = clamp(mid - lo * scale);
        ctx.fillRect(job.x0 + k * bw, y0, Math.max(1, bw), Math.max(1, y1 - y0));
      }
      return;
    }
    const pxPerFrame = 1 / (spp * job.rate);
    const xAt = (f) => (job.t0 + (f - job.clip.start) / job.rate - v0) / spp;
    ctx.strokeStyle = COLORS.wave;
    ctx.lineWidth = Math.max(1, this.dpr);
    ctx.beginPath();
    for (let k = 0; k < job.count && 2 * k < peaks.length; k++) {
      const f = job.fa + k;
      const y = clamp(mid - peaks[2 * k + 1] * env(f) * scale);
      if (k === 0) ctx.moveTo(xAt(f), y); else ctx.lineTo(xAt(f), y);
    }
    ctx.stroke();
    if (pxPerFrame >= 6) {
      ctx.fillStyle = COLORS.wave;
      const r = Math.min(3, pxPerFrame / 4) * this.dpr;
      for (let k = 0; k < job.count; k++) {
        const f = job.fa + k;
        const y = clamp(mid - peaks[2 * k + 1] * env(f) * scale);
        ctx.fillRect(xAt(f) - r, y - r, 2 * r, 2 * r);
      }
    }
    ctx.strokeStyle = COLORS.grid;
    ctx.beginPath();
    ctx.moveTo(job.x0, mid + 0.5);
    ctx.lineTo(job.x1, mid + 0.5);
    ctx.stroke();
  }

  // The clip's fade at a frame of its source (linear, as drawn).
  envelope(job, frame) {
    const c = job.clip;
    const t = (frame - c.start) / job.rate;
    const len = (c.end - c.start) / job.rate;
    let g = 1;
    if (c.fade_in > 0 && t < c.fade_in) g *= Math.max(0, t / c.fade_in);
    if (c.fade_out > 0 && len - t < c.fade_out) g *= Math.max(0, (len - t) / c.fade_out);
    return g;
  }

  paintFades(ctx, job, top, height, v0, spp) {
    const c = job.clip;
    ctx.strokeStyle = COLORS.fade;
    ctx.lineWidth = Math.max(1, 1.5 * this.dpr);
    const x = (t) => (t - v0) / spp;
    ctx.beginPath();
    if (c.fade_in > 0) {
      ctx.moveTo(x(job.t0), top + height);
      ctx.lineTo(x(job.t0 + c.fade_in), top);
    }
    if (c.fade_out > 0) {
      ctx.moveTo(x(job.t1 - c.fade_out), top);
      ctx.lineTo(x(job.t1), top + height);
    }
    ctx.stroke();
  }

  // Selection, cursor and playhead over the view.
  paintMarks(ctx, W, H, v0, spp, top) {
    const app = this.app;
    const dpr = this.dpr;
    const x = (t) => (t - v0) / spp;
    const { a, b } = app.selection();
    if (b > a) {
      const xa = Math.max(0, x(a));
      const xb = Math.min(W, x(b));
      if (xb > xa) {
        ctx.fillStyle = COLORS.sel;
        ctx.fillRect(xa, top, xb - xa, H - top);
        ctx.fillStyle = COLORS.selEdge;
        ctx.fillRect(x(a), top, Math.max(1, dpr), H - top);
        ctx.fillRect(x(b), top, Math.max(1, dpr), H - top);
      }
    }
    ctx.fillStyle = COLORS.cursor;
    ctx.fillRect(Math.round(x(app.cursor)), top, Math.max(1, Math.round(dpr)), H - top);
    if (app.playhead !== null) {
      const px = Math.round(x(app.playhead));
      ctx.fillStyle = COLORS.play;
      ctx.fillRect(px - Math.round(dpr), 0, Math.max(2, Math.round(2 * dpr)), H);
      ctx.beginPath();
      ctx.moveTo(px - 6 * dpr, 0);
      ctx.lineTo(px + 6 * dpr, 0);
      ctx.lineTo(px, 8 * dpr);
      ctx.fill();
    }
  }

  renderOverview() {
    const c = this.overview;
    const ctx = c.getContext('2d');
    const W = c.width;
    const H = c.height;
    const { total } = this.limits();
    const spp = total / W;
    ctx.fillStyle = COLORS.back;
    ctx.fillRect(0, 0, W, H);
    if (this.app.edit.empty) return;
    const jobs = this.jobs(0, spp, W);
    this.gather(jobs, 0, 'overview');
    for (const job of jobs) {
      ctx.fillStyle = job.index % 2 ? COLORS.clipB : COLORS.clipA;
      ctx.fillRect(job.x0, 0, job.x1 - job.x0, H);
      this.paintPeaks(ctx, job, 0, H, 0, spp);
      ctx.fillStyle = COLORS.join;
      ctx.fillRect(job.x0, 0, 1, H);
    }
    this.paintSilences(ctx, this.app.silenceRegions(), W, 0, H, 0, spp);
    this.paintMarks(ctx, W, H, 0, spp, 0);
    const vx0 = this.v0 / spp;
    const vx1 = (this.v0 + this.spp * this.width) / spp;
    ctx.fillStyle = COLORS.view;
    ctx.fillRect(vx0, 0, Math.max(2, vx1 - vx0), H);
    ctx.strokeStyle = COLORS.viewEdge;
    ctx.lineWidth = Math.max(1, this.dpr);
    ctx.strokeRect(vx0 + 0.5, 0.5, Math.max(2, vx1 - vx0) - 1, H - 1);
  }
}
