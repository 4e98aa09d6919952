// Plays the edit as it stands: the server reads the clip list through the
// engine as a WAV stream (Range requests for seeking), the <audio> element
// plays it, and the playhead follows its currentTime. The list is posted
// shortly after each edit, so that Play rarely waits for it.
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
    clearTimeout(this.timer);
    if (!this.app.edit.empty) this.timer = setTimeout(() => this.prepare().catch(() => {}), 50);
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
    if (app.edit.empty || this.playing) return;
    app.stats.playClicked = performance.now();
    app.stats.playStartMs = null;
    let url;
    try {
      url = await this.prepare();
    } catch (err) {
      app.status(`cannot play: ${err.message}`);
      return;
    }
    const audio = this.audio;
    if (audio.getAttribute('src') !== url) {
      audio.src = url;
    }
    const { a, b } = app.selection();
    let from = b > a ? a : app.cursor;
    if (from >= app.edit.duration() - 1e-6) from = 0;
    this.startOutput = app.edit.toOutput(from);
    if (audio.readyState < 1) {
      await new Promise((resolve) => audio.addEventListener('loadedmetadata', resolve, { once: true }));
    }
    audio.currentTime = this.startOutput;
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
