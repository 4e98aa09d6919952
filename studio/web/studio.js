// The studio page: the edit, its view, and the keys and buttons that
// change them. The panels (export, recording, file facts) are in
// panels.js; playing is in player.js.
import { getJson, postJson, listen } from './api.js';
import { Edit, newClip } from './edit.js';
import { PeakCache } from './peaks.js';
import { WaveformView, formatTime } from './view.js';
import { Player } from './player.js';
import { ExportPanel, Recorder, InfoPanel, ClipPanel } from './panels.js';

const $ = (id) => document.getElementById(id);

// For the benchmark and for anyone curious: times in milliseconds.
const stats = {
  openAsked: null, firstWaveformMs: null, redraws: [], lastRedrawMs: null, drawn: 0,
  peakRequests: 0, playClicked: null, playStartMs: null,
  // The last silences found ({source, intervals} in source frames) and the
  // edit-time [start, end] seconds last shaded.
  silences: null, silenceRegions: [],
};
window.studioStats = stats;

class Studio {
  constructor() {
    this.stats = stats;
    this.sources = new Map();
    this.silences = new Map(); // source -> [{start, end}] frames
    this.files = [];
    this.edit = new Edit((id) => this.rateOf(id));
    this.peaks = new PeakCache(this.sources, stats);
    this.view = new WaveformView($('waveform'), $('overview'), this);
    this.anchor = 0;
    this.cursor = 0;
    this.playhead = null;
    this.clipboard = [];
    this.dragTarget = null;
    this.player = new Player(this, $('audio'));
    this.exporter = new ExportPanel(this);
    this.recorder = new Recorder(this);
    this.info = new InfoPanel(this);
    this.clipPanel = new ClipPanel(this);
  }

  rateOf(id) {
    const s = this.sources.get(id);
    return s && s.sample_rate > 0 ? s.sample_rate : 44100;
  }

  setSilences(source, intervals) {
    this.silences.set(source, intervals);
    stats.silences = { source, intervals };
    this.view.draw();
  }

  // The silences inside the kept part of each clip, in edit seconds.
  silenceRegions() {
    const { starts } = this.edit.layout();
    const out = [];
    this.edit.clips.forEach((clip, i) => {
      const rate = this.rateOf(clip.source);
      for (const s of this.silences.get(clip.source) || []) {
        const a = Math.max(s.start, clip.start);
        const b = Math.min(s.end, clip.end);
        if (b > a) out.push([starts[i] + (a - clip.start) / rate, starts[i] + (b - clip.start) / rate]);
      }
    });
    return out;
  }

  selection() {
    return { a: Math.min(this.anchor, this.cursor), b: Math.max(this.anchor, this.cursor) };
  }

  status(text) { $('status').textContent = text; }

  // ---- files and sources ----
  async start() {
    this.bind();
    this.events = listen({
      load: (e) => this.onLoad(e),
      progress: (e) => this.exporter.onProgress(e),
      done: (e) => this.exporter.onDone(e),
      failed: (e) => this.exporter.onFailed(e),
      cancelled: (e) => this.exporter.onCancelled(e),
      level: (e) => this.recorder.onLevel(e),
      loudness: (e) => this.info.onLoudness(e),
    });
    // Events sent before the stream was open are lost: what a source did
    // meanwhile is asked for once it is open (and after a reconnection).
    this.eventsOpen = new Promise((resolve) => this.events.addEventListener('open', resolve, { once: true }));
    this.events.addEventListener('open', () => {
      for (const s of this.sources.values()) if (!s.done) this.refreshSource(s.source).catch(() => {});
    });
    const answer = await this.refreshFiles();
    if (answer.open) await this.openFile(answer.open);
    this.changed();
  }

  async refreshFiles() {
    const answer = await getJson('/api/files');
    this.files = answer.files;
    this.exporter.setFolder(answer.out);
    const list = $('file-list');
    list.replaceChildren();
    for (const f of this.files) {
      const li = document.createElement('li');
      const button = document.createElement('button');
      const icon = document.createElement('span');
      icon.className = 'icon';
      icon.setAttribute('aria-hidden', 'true');
      button.append(icon, f.name);
      button.title = `${f.name}: open, or insert at the cursor while an edit is open`;
      button.addEventListener('click', () => this.openFile(f.id).catch((err) => this.status(err.message)));
      li.append(button);
      list.append(li);
    }
    $('files-hint').textContent = this.files.length ? 'Click a file to open it; with an edit open it goes in at the cursor.' : 'No audio files.';
    return answer;
  }

  addSource(s) {
    const known = this.sources.get(s.source);
    const entry = { generation: 0, ...known, ...s };
    this.sources.set(s.source, entry);
    this.markFile(s.file);
    return entry;
  }

  markFile(fileId) {
    const i = this.files.findIndex((f) => f.id === fileId);
    const buttons = $('file-list').querySelectorAll('button');
    if (i >= 0 && buttons[i]) buttons[i].classList.add('opened');
  }

  // The first file makes the edit; later ones go in at the cursor.
  async openFile(fileId) {
    if (this.edit.empty) stats.openAsked = performance.now();
    await this.place(this.addSource(await postJson('/api/open', { file: fileId })));
  }

  // A source goes into the edit once the server has read its rate.
  async place(s) {
    for (let waited = 0; !(s.sample_rate > 0) && !s.error && waited < 30000; waited += 20) {
      await new Promise((resolve) => setTimeout(resolve, 20));
      s = await this.refreshSource(s.source);
    }
    if (s.error) throw new Error(`${s.name}: ${s.error}`);
    this.insertSource(s);
    this.info.show(s.source);
    await this.eventsOpen;
    await this.refreshSource(s.source);
  }

  async refreshSource(id) {
    const answer = await getJson(`/api/source?id=${id}`);
    const s = this.sources.get(id);
    if (s && !(s.sample_rate > 0) && answer.sample_rate > 0) {
      s.sample_rate = answer.sample_rate;
      s.channels = answer.channels;
    }
    this.onLoad(answer);
    return this.sources.get(id);
  }

  insertSource(s) {
    const clip = newClip(s.source, Math.max(1, s.frames));
    if (this.edit.empty) {
      this.edit.reset({ clips: [clip], crossfade: this.edit.crossfade });
      this.anchor = this.cursor = 0;
      this.view.fitAll();
    } else {
      const at = this.cursor;
      this.edit.insert(at, at, [clip]);
      this.anchor = at;
      this.cursor = at + clip.end / s.sample_rate;
    }
    this.status(`${s.name}: ${s.done ? 'loaded' : 'loading…'}`);
    this.changed();
  }

  // The waveform grows as the source loads; a length that was only
  // expected becomes exact (whole-file clips follow it).
  onLoad(e) {
    const s = this.sources.get(e.source);
    if (!s) return;
    const oldFrames = s.frames;
    if (s.done && !e.done) return; // an older answer than one already had
    if (e.loaded !== s.loaded || e.done !== s.done) s.generation++;
    s.loaded = e.loaded;
    s.frames = e.frames;
    s.done = e.done;
    if (e.frames !== oldFrames && e.frames > 0) {
      this.edit.sourceLength(e.source, Math.max(1, oldFrames), e.frames);
    }
    if (e.done) {
      this.status(`${s.name}: loaded`);
      this.changed(false);
    } else {
      const pct = s.frames ? Math.floor((100 * s.loaded) / s.frames) : 0;
      this.status(`${s.name}: loading ${pct} %`);
      if (e.frames !== oldFrames) this.changed(false); else this.view.draw();
    }
  }

  // ---- the edit ----
  // After every change: inputs, panels, view, and the list for playing.
  changed(edited = true) {
    const total = this.edit.duration();
    this.cursor = Math.max(0, Math.min(total, this.cursor));
    this.anchor = Math.max(0, Math.min(total, this.anchor));
    const { a, b } = this.selection();
    if (document.activeElement !== $('sel-start')) $('sel-start').value = a.toFixed(3);
    if (document.activeElement !== $('sel-end')) $('sel-end').value = b.toFixed(3);
    $('sel-length').textContent = b > a ? `selected ${formatTime(b - a)}` : '';
    this.showPosition();
    $('undo').disabled = !this.edit.undoStack.length;
    $('redo').disabled = !this.edit.redoStack.length;
    $('paste').disabled = !this.clipboard.length;
    for (const id of ['cut', 'copy', 'delete']) $(id).disabled = !(b > a);
    this.clipPanel.update();
    if (edited) this.player.editChanged(); else this.player.cursorMoved();
    this.view.draw();
  }

  showPosition() {
    $('position').textContent = `${formatTime(this.playhead ?? this.cursor)} / ${formatTime(this.edit.duration())}`;
  }

  select(a, b) {
    this.anchor = a;
    this.cursor = b;
    this.changed(false);
  }

  setCursor(t, extend) {
    this.cursor = t;
    if (!extend) this.anchor = t;
    this.view.reveal(t);
    this.changed(false);
  }

  cut() {
    this.copy();
    this.remove();
  }

  copy() {
    const { a, b } = this.selection();
    const pieces = this.edit.copy(a, b);
    if (!pieces.length) return;
    this.clipboard = pieces;
    this.status(`copied ${formatTime(b - a)}`);
    this.changed(false);
  }

  remove() {
    const { a, b } = this.selection();
    if (this.edit.remove(a, b)) {
      this.anchor = this.cursor = a;
      this.changed();
    }
  }

  paste() {
    const { a, b } = this.selection();
    if (!this.edit.insert(a, b, this.clipboard)) return;
    const length = this.clipboard.reduce((sum, c) => sum + (c.end - c.start) / this.rateOf(c.source), 0);
    this.anchor = a;
    this.cursor = a + length;
    this.changed();
  }

  split() {
    if (this.edit.split(this.cursor)) this.changed();
  }

  undo() { if (this.edit.undo()) this.changed(); }
  redo() { if (this.edit.redo()) this.changed(); }

  // The clip at the cursor moves one place; the cursor moves with it.
  moveClip(step) {
    const i = this.edit.clipAt(this.cursor);
    if (i < 0) return;
    const { starts } = this.edit.layout();
    const offset = this.cursor - starts[i];
    if (!this.edit.move(i, i + step)) return;
    const j = Math.max(0, Math.min(this.edit.clips.length - 1, i + step));
    this.anchor = this.cursor = this.edit.layout().starts[j] + offset;
    this.changed();
  }

  // F / Shift+F: the clip's fade covers the selection from its edge.
  fade(out) {
    const { a, b } = this.selection();
    const i = this.edit.clipAt(out ? Math.max(0, b - 1e-9) : a);
    if (i < 0) return;
    const { starts } = this.edit.layout();
    const c = this.edit.clips[i];
    const end = starts[i] + (c.end - c.start) / this.rateOf(c.source);
    const length = b > a ? (out ? end - a : b - starts[i]) : 1;
    if (this.edit.setClip(i, out ? { fade_out: length } : { fade_in: length })) this.changed();
  }

  gain(step) {
    const i = this.edit.clipAt(this.cursor);
    if (i >= 0 && this.edit.setClip(i, { gain_db: this.edit.clips[i].gain_db + step })) this.changed();
  }

  // ---- input ----
  bind() {
    const click = (id, fn) => $(id).addEventListener('click', () => { fn(); });
    click('cut', () => this.cut());
    click('copy', () => this.copy());
    click('paste', () => this.paste());
    click('delete', () => this.remove());
    click('split', () => this.split());
    click('undo', () => this.undo());
    click('redo', () => this.redo());
    click('zoom-in', () => this.view.zoom(0.5, this.zoomCentre()));
    click('zoom-out', () => this.view.zoom(2, this.zoomCentre()));
    click('fit', () => this.view.fitAll());
    click('help-toggle', () => this.toggleHelp());
    const typed = () => {
      const a = Math.max(0, Number($('sel-start').value) || 0);
      const b = Math.max(0, Number($('sel-end').value) || 0);
      this.select(Math.min(a, b), Math.max(a, b));
      this.view.reveal(Math.min(a, b));
    };
    for (const id of ['sel-start', 'sel-end']) {
      $(id).addEventListener('change', typed);
      $(id).addEventListener('input', typed);
    }
    document.addEventListener('keydown', (e) => this.key(e));
    window.addEventListener('resize', () => this.view.draw());
    this.bindMouse();
  }

  zoomCentre() {
    const span = this.view.spp * this.view.width;
    const t = this.playhead ?? this.cursor;
    return t >= this.view.v0 && t <= this.view.v0 + span ? t : undefined;
  }

  toggleHelp() {
    const help = $('help');
    help.hidden = !help.hidden;
    $('help-toggle').setAttribute('aria-expanded', String(!help.hidden));
  }

  key(e) {
    const target = e.target;
    const typing = target && (target.tagName === 'INPUT' || target.tagName === 'SELECT' || target.tagName === 'TEXTAREA');
    if (typing && e.key !== 'Escape') return;
    const ctrl = e.ctrlKey || e.metaKey;
    const k = e.key;
    const step = Math.max(this.view.spp * 10, 1 / this.view.maxRate());
    const handled = () => { e.preventDefault(); e.stopPropagation(); };
    if (ctrl && (k === 'z' || k === 'Z')) { handled(); if (e.shiftKey) this.redo(); else this.undo(); return; }
    if (ctrl && (k === 'y' || k === 'Y')) { handled(); this.redo(); return; }
    if (ctrl && (k === 'x' || k === 'X')) { handled(); this.cut(); return; }
    if (ctrl && (k === 'c' || k === 'C')) { handled(); this.copy(); return; }
    if (ctrl && (k === 'v' || k === 'V')) { handled(); this.paste(); return; }
    if (ctrl && k === 'a') { handled(); this.select(0, this.edit.duration()); return; }
    if (ctrl) return;
    // Space plays and pauses wherever the focus is (Enter still presses a
    // focused button), so that a clicked button is not pressed again.
    if (k === ' ') { handled(); this.player.toggle(); return; }
    if (k === 'Delete' || k === 'Backspace') { handled(); this.remove(); return; }
    if (k === 's' || k === 'S') { handled(); this.split(); return; }
    if (k === 'f' || k === 'F') { handled(); this.fade(e.shiftKey); return; }
    if (k === 'g' || k === 'G') { handled(); this.gain(e.shiftKey ? -1 : 1); return; }
    if (k === '+' || k === '=') { handled(); this.view.zoom(0.5, this.zoomCentre()); return; }
    if (k === '-' || k === '_') { handled(); this.view.zoom(2, this.zoomCentre()); return; }
    if (k === '0') { handled(); this.view.fitAll(); return; }
    if (k === '?') { handled(); this.toggleHelp(); return; }
    if (k === 'Home') { handled(); this.setCursor(0, e.shiftKey); return; }
    if (k === 'End') { handled(); this.setCursor(this.edit.duration(), e.shiftKey); return; }
    if (k === 'ArrowLeft' || k === 'ArrowRight') {
      handled();
      const dir = k === 'ArrowLeft' ? -1 : 1;
      if (e.altKey) this.moveClip(dir);
      else this.setCursor(Math.max(0, Math.min(this.edit.duration(), this.cursor + dir * step)), e.shiftKey);
      return;
    }
    if (k === 'PageUp' || k === 'PageDown') { handled(); this.view.scrollBy(k === 'PageUp' ? -0.9 : 0.9); return; }
    if (k === 'Escape') { handled(); this.select(this.cursor, this.cursor); }
  }

  bindMouse() {
    const canvas = $('waveform');
    let drag = null;
    const pos = (e) => {
      const r = canvas.getBoundingClientRect();
      return { x: e.clientX - r.left, y: e.clientY - r.top };
    };
    const clampT = (t) => Math.max(0, Math.min(this.edit.duration(), t));
    canvas.addEventListener('pointerdown', (e) => {
      if (this.edit.empty || e.button !== 0) return;
      canvas.focus();
      canvas.setPointerCapture(e.pointerId);
      const p = pos(e);
      const t = clampT(this.view.timeAtX(p.x));
      if (this.view.inHeader(p.y)) {
        drag = { kind: 'clip', from: this.edit.clipAt(t), x: p.x };
        canvas.style.cursor = 'grabbing';
      } else {
        drag = { kind: 'select' };
        if (e.shiftKey) this.cursor = t; else this.anchor = this.cursor = t;
        this.changed(false);
      }
    });
    canvas.addEventListener('pointermove', (e) => {
      const p = pos(e);
      if (!drag) {
        canvas.style.cursor = this.view.inHeader(p.y) ? 'grab' : 'text';
        return;
      }
      if (drag.kind === 'select') {
        this.cursor = clampT(this.view.timeAtX(p.x));
        this.changed(false);
      } else if (Math.abs(p.x - drag.x) > 3) {
        this.dragTarget = { from: drag.from, to: this.edit.clipAt(clampT(this.view.timeAtX(p.x))) };
        this.view.draw();
      }
    });
    canvas.addEventListener('pointerup', (e) => {
      if (!drag) return;
      const p = pos(e);
      if (drag.kind === 'clip' && Math.abs(p.x - drag.x) > 3) {
        const to = this.edit.clipAt(clampT(this.view.timeAtX(p.x)));
        if (this.edit.move(drag.from, to)) {
          this.anchor = this.cursor = this.edit.layout().starts[to];
          this.changed();
        }
      }
      canvas.style.cursor = '';
      drag = null;
      this.dragTarget = null;
      this.view.draw();
    });
    canvas.addEventListener('wheel', (e) => {
      e.preventDefault();
      if (e.ctrlKey) {
        this.view.zoom(e.deltaY < 0 ? 0.8 : 1.25, clampT(this.view.timeAtX(pos(e).x)));
      } else {
        const d = Math.abs(e.deltaX) > Math.abs(e.deltaY) ? e.deltaX : e.deltaY;
        this.view.scrollBy(Math.sign(d) * 0.1);
      }
    }, { passive: false });
    const overview = $('overview');
    const jump = (e) => {
      const r = overview.getBoundingClientRect();
      const total = this.edit.duration();
      const t = ((e.clientX - r.left) / r.width) * total;
      const span = this.view.spp * this.view.width;
      this.view.setView(t - span / 2, this.view.spp, 'scroll');
    };
    overview.addEventListener('pointerdown', (e) => {
      overview.setPointerCapture(e.pointerId);
      jump(e);
      const move = (m) => jump(m);
      overview.addEventListener('pointermove', move);
      overview.addEventListener('pointerup', () => overview.removeEventListener('pointermove', move), { once: true });
    });
  }
}

const studio = new Studio();
window.studio = studio;
studio.start().catch((err) => studio.status(`error: ${err.message}`));
