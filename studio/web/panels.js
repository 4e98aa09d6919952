// The side panels: export (with live progress, cancel and download),
// recording (with the input's level), file facts, loudness and silences,
// and the clip under the cursor.
import { getJson, postJson, ApiError } from './api.js';
import { formatTime } from './view.js';

const $ = (id) => document.getElementById(id);

export class ExportPanel {
  constructor(app) {
    this.app = app;
    this.job = null;
    this.folder = '';
    // A short job can end before its POST is answered: its last event is
    // kept until the answer names the job.
    this.early = new Map();
    $('export').addEventListener('click', () => {
      const panel = $('export-panel');
      panel.hidden = !panel.hidden;
      if (!panel.hidden) $('export-name').focus();
    });
    $('export-format').addEventListener('change', () => {
      const ext = $('export-format').value;
      const name = $('export-name').value.trim() || 'edit';
      $('export-name').value = name.replace(/\.[^.]*$/, '') + '.' + ext;
      $('export-bitrate').disabled = ext === 'wav' || ext === 'flac';
    });
    $('export-bitrate').disabled = true;
    $('save').addEventListener('click', () => this.save(false).catch((err) => this.fail(err.message)));
    $('cancel-export').addEventListener('click', () => this.cancel());
  }

  setFolder(name) {
    this.folder = name || '';
    $('export-dir').textContent = this.folder || 'the output folder';
  }

  request(overwrite) {
    const bitrate = $('export-bitrate').value;
    return {
      ...this.app.edit.body(),
      name: $('export-name').value.trim(),
      format: $('export-format').value,
      bitrate: bitrate && !$('export-bitrate').disabled ? Number(bitrate) : null,
      normalize: $('export-normalize').checked ? Number($('export-lufs').value) : null,
      overwrite,
    };
  }

  async save(overwrite) {
    if (this.app.edit.empty || this.job) return;
    const body = this.request(overwrite);
    $('export-result').textContent = '';
    let answer;
    this.started = performance.now();
    this.early.clear();
    this.posting = true;
    try {
      answer = await postJson('/api/export', body);
    } catch (err) {
      if (err instanceof ApiError && err.status === 409) {
        const where = this.folder ? ` in ${this.folder}` : '';
        if (window.confirm(`${body.name} already exists${where}. Replace it?`)) return await this.save(true);
        this.result('Not saved.');
        return undefined;
      }
      throw err;
    } finally {
      this.posting = false;
    }
    this.job = answer.job;
    this.name = body.name;
    $('export-progress').hidden = false;
    $('export-progress').value = 0;
    $('cancel-export').hidden = false;
    $('save').disabled = true;
    this.app.status(`exporting ${body.name}…`);
    const ended = this.early.get(this.job);
    this.early.clear();
    if (ended) ended();
    return undefined;
  }

  cancel() {
    if (!this.job) return;
    postJson('/api/export/cancel', { job: this.job }).catch(() => {});
  }

  finish() {
    this.job = null;
    $('export-progress').hidden = true;
    $('cancel-export').hidden = true;
    $('save').disabled = false;
  }

  result(text, link) {
    const p = $('export-result');
    p.replaceChildren(text);
    if (link) {
      const a = document.createElement('a');
      a.href = link;
      a.textContent = 'Download';
      a.setAttribute('download', '');
      p.append(' ', a);
    }
  }

  fail(message) {
    this.finish();
    this.result(`Export failed: ${message}`);
    this.app.status('export failed');
  }

  // True when the event is for the job on its way (kept for later).
  later(e, handler) {
    if (this.job === null && this.posting) this.early.set(e.job, () => handler.call(this, e));
    return e.job !== this.job;
  }

  onProgress(e) {
    if (e.job === this.job) $('export-progress').value = e.percent;
  }

  onDone(e) {
    if (this.later(e, this.onDone)) return;
    const seconds = ((performance.now() - this.started) / 1000).toFixed(1);
    this.app.stats.exportMs = performance.now() - this.started;
    this.finish();
    this.result(`Saved ${e.name} (${seconds} s).`, e.url);
    this.app.status(`saved ${e.name}`);
  }

  onFailed(e) {
    if (!this.later(e, this.onFailed)) this.fail(e.error);
  }

  onCancelled(e) {
    if (this.later(e, this.onCancelled)) return;
    this.finish();
    this.result('Cancelled; nothing was written.');
    this.app.status('export cancelled');
  }
}

export class Recorder {
  constructor(app) {
    this.app = app;
    this.take = null;
    $('record').addEventListener('click', () => this.start().catch((err) => this.app.status(`cannot record: ${err.message}`)));
    $('stop').addEventListener('click', () => this.stop().catch((err) => this.app.status(`cannot stop: ${err.message}`)));
  }

  async start() {
    if (this.take) return;
    const answer = await postJson('/api/record/start', {});
    this.take = answer.take;
    $('record').disabled = true;
    $('record').classList.add('on');
    $('stop').disabled = false;
    $('level').hidden = false;
    this.app.status('recording…');
  }

  async stop() {
    if (!this.take) return;
    const take = this.take;
    this.take = null;
    $('record').disabled = false;
    $('record').classList.remove('on');
    $('stop').disabled = true;
    $('level').hidden = true;
    const source = this.app.addSource(await postJson('/api/record/stop', { take }));
    await this.app.refreshFiles();
    this.app.markFile(source.file);
    await this.app.place(source);
  }

  onLevel(e) {
    if (e.take !== this.take) return;
    const db = Math.max(-60, Math.min(0, e.peak_db));
    const meter = $('level');
    meter.setAttribute('aria-valuenow', db.toFixed(1));
    meter.firstElementChild.style.width = `${((db + 60) / 60) * 100}%`;
    meter.classList.toggle('hot', db > -3);
    this.app.status(`recording ${formatTime(e.seconds, 0.1)}  ${e.peak_db.toFixed(1)} dB`);
  }
}

export class InfoPanel {
  constructor(app) {
    this.app = app;
    this.source = null;
    $('measure').addEventListener('click', () => {
      if (this.source === null) return;
      $('measure').disabled = true;
      $('info-loudness').replaceChildren(row('', 'measuring…'));
      postJson('/api/loudness', { source: this.source }).catch((err) => this.app.status(err.message));
    });
    $('find-silences').addEventListener('click', () => this.findSilences().catch((err) => {
      $('silence-count').textContent = '';
      this.app.status(err.message);
    }).finally(() => { $('find-silences').disabled = false; }));
  }

  // The server's defaults (-50 dBFS, 1 s), as `wavoryx silence` has them.
  async findSilences() {
    const source = this.source;
    if (source === null) return;
    $('find-silences').disabled = true;
    $('silence-count').textContent = 'finding…';
    const answer = await postJson('/api/silences', { source });
    this.app.setSilences(source, answer.silences);
    if (source === this.source) this.showSilences();
  }

  showSilences() {
    const found = this.app.silences.get(this.source);
    $('silence-count').textContent = found ? `${found.length} silence${found.length === 1 ? '' : 's'}` : '';
  }

  async show(source) {
    this.source = source;
    const s = this.app.sources.get(source);
    $('info-name').textContent = s ? s.name : '';
    this.showSilences();
    let info;
    try {
      info = await getJson(`/api/info?source=${source}`);
    } catch (err) {
      $('info-facts').replaceChildren(row('error', err.message));
      return;
    }
    if (source !== this.source) return;
    const facts = [
      ['format', info.format], ['codec', info.codec], ['sample rate', `${info.sample_rate} Hz`],
      ['channels', info.channels], ['duration', formatTime(info.duration)],
      ['bit rate', info.bit_rate ? `${Math.round(info.bit_rate / 1000)} kb/s` : '—'],
    ];
    for (const [k, v] of Object.entries(info.tags || {})) facts.push([k, v]);
    $('info-facts').replaceChildren(...facts.map(([k, v]) => row(k, v)));
    const l = info.loudness;
    $('measure').disabled = false;
    $('info-loudness').replaceChildren(...(l
      ? [row('integrated', `${l.integrated.toFixed(1)} LUFS`), row('range', `${l.range.toFixed(1)} LU`),
        row('true peak', `${l.true_peak.toFixed(1)} dBTP`)]
      : [row('', 'not measured yet')]));
  }

  onLoudness(e) {
    if (e.source === this.source) this.show(e.source);
  }
}

function row(key, value) {
  const frag = document.createDocumentFragment();
  const dt = document.createElement('dt');
  dt.textContent = key;
  const dd = document.createElement('dd');
  dd.textContent = String(value);
  frag.append(dt, dd);
  return frag;
}

// The clip under the cursor: its gain and fades, and the edit's crossfade.
export class ClipPanel {
  constructor(app) {
    this.app = app;
    const set = (id, key) => $(id).addEventListener('change', () => {
      const i = this.index();
      if (i >= 0 && app.edit.setClip(i, { [key]: Number($(id).value) })) app.changed();
    });
    set('clip-gain', 'gain_db');
    set('clip-fade-in', 'fade_in');
    set('clip-fade-out', 'fade_out');
    $('crossfade').addEventListener('change', () => {
      if (app.edit.setCrossfade($('crossfade').value)) app.changed();
    });
  }

  index() {
    return this.app.edit.clipAt(this.app.cursor);
  }

  update() {
    const i = this.index();
    const c = this.app.edit.clips[i];
    const s = c && this.app.sources.get(c.source);
    $('clip-name').textContent = c ? `${i + 1} of ${this.app.edit.clips.length}${s ? ` · ${s.name}` : ''}` : '';
    const put = (id, v) => { if (document.activeElement !== $(id)) $(id).value = v; };
    put('clip-gain', c ? c.gain_db : 0);
    put('clip-fade-in', c ? c.fade_in.toFixed(2) : 0);
    put('clip-fade-out', c ? c.fade_out.toFixed(2) : 0);
    put('crossfade', this.app.edit.crossfade);
    for (const id of ['clip-gain', 'clip-fade-in', 'clip-fade-out']) $(id).disabled = !c;
  }
}
