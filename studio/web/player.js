// Plays the edit as it stands: the server reads the clip list through the
// engine as a WAV stream (Range requests for seeking), the <audio> element
// plays it, and the playhead follows its currentTime. Shortly after each
// edit or move of the cursor the list is posted and the element loaded and
// set to where Play will start, so that Play only has to start it.
import { postJson } from './api.js';

export class Player {
  constructor(app, audio) {
    this.app = app;
    this.audio = audio;
    this.list = null; // { version, url, promise }
    this.timer = null;
    this.playing = false;
    this.startOutput = 0;
    this.frame = null;
    audio.addEventListener('ended', () => this.stopped());
    audio.addEventListener('pause', () => this.stopped());
    audio.addEventListener('error', () => {
      if (this.playing) this.app.status('playing failed');
      this.stopped();
    });
    document.getElementById('play').addEventListener('click', () => this.play());
    document.getElementById('pause').addEventListener('click', () => this.pause());
  }

  editChanged() {
    if (this.playing) this.pause();
    this.list = null;
    this.cueSoon(50);
  }

  cursorMoved() {
    if (!this.playing) this.cueSoon(120);
  }

  cueSoon(ms) {
    clearTimeout(this.timer);
    if (!this.app.edit.empty) this.timer = setTimeout(() => this.cue().catch(() => {}), ms);
  }

  // Where Play starts: the selection's start, else the cursor (from the
  // beginning once the cursor is at the end), in the played sound's time.
  startPosition() {
    const app = this.app;
    const { a, b } = app.selection();
    let from = b > a ? a : app.cursor;
    if (from >= app.edit.duration() - 1e-6) from = 0;
    return app.edit.toOutput(from);
  }

  // The element holds the current list at the start position.
  async cue() {
    if (this.playing || this.app.edit.empty) return false;
    const url = await this.prepare();
    const audio = this.audio;
    if (this.playing) return false;
    if (audio.getAttribute('src') !== url) audio.src = url;
    if (audio.readyState < 1) {
      await new Promise((resolve) => audio.addEventListener('loadedmetadata', resolve, { once: true }));
    }
    if (this.playing || audio.getAttribute('src') !== url) return false;
    const start = this.startPosition();
    if (Math.abs(audio.currentTime - start) > 1e-4) audio.currentTime = start;
    return true;
  }

  // The list of the current edit on the server (posted once per version).
  prepare() {
    const edit = this.app.edit;
    if (this.list && this.list.version === edit.version) return this.list.promise;
    const version = edit.version;
    const promise = postJson('/api/list', edit.body()).then((answer) => answer.url);
    this.list = { version, promise };
    promise.catch(() => { if (this.list && this.list.version === version) this.list = null; });
    return promise;
  }

  toggle() {
    if (this.playing) this.pause(); else this.play();
  }

  async play() {
    const app = this.app;
    if (app.edit.empty || this.playing || this.starting) return;
    this.starting = true;
    try {
      await this.start();
    } finally {
      this.starting = false;
    }
  }

  async start() {
    const app = this.app;
    app.stats.playClicked = performance.now();
    app.stats.playStartMs = null;
    const audio = this.audio;
    clearTimeout(this.timer);
    try {
      await this.cue();
    } catch (err) {
      app.status(`cannot play: ${err.message}`);
      return;
    }
    this.startOutput = this.startPosition();
    this.playing = true;
    this.buttons();
    try {
      await audio.play();
    } catch (err) {
      this.playing = false;
      this.buttons();
      app.status(`cannot play: ${err.message}`);
      return;
    }
    this.follow();
  }

  pause() {
    this.audio.pause();
    this.stopped();
  }

  stopped() {
    if (!this.playing) return;
    this.playing = false;
    cancelAnimationFrame(this.frame);
    this.buttons();
    this.app.changed(false);
  }

  buttons() {
    document.getElementById('play').disabled = this.playing;
    document.getElementById('pause').disabled = !this.playing;
  }

  follow() {
    const tick = () => {
      if (!this.playing) return;
      const app = this.app;
      const now = this.audio.currentTime;
      if (app.stats.playStartMs === null && now > this.startOutput) {
        app.stats.playStartMs = performance.now() - app.stats.playClicked;
      }
      app.playhead = app.edit.fromOutput(now);
      app.view.reveal(app.playhead);
      app.showPosition();
      app.view.draw();
      this.frame = requestAnimationFrame(tick);
    };
    this.frame = requestAnimationFrame(tick);
  }
}
