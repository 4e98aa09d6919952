// The page's edit model without a browser: cuts land on whole frames of
// each clip's own source, fades stay with the edge they belong to, undo
// and redo walk the states exactly, and edit time maps to the played
// sound's time across crossfades.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { Edit, newClip } from '../../studio/web/edit.js';

const rates = { 1: 44100, 2: 48000 };
const frames = (e) => e.clips.map((c) => [c.source, c.start, c.end]);
function twoSources() {
  const e = new Edit((id) => rates[id]);
  e.reset({ clips: [newClip(1, 441000), newClip(2, 96000)], crossfade: 0 });
  return e;
}

test('cut, copy and paste across sources of different rates', () => {
  const e = twoSources();
  assert.equal(e.duration(), 12);
  const piece = e.copy(9.5, 10.5);
  assert.deepEqual(piece.map((c) => [c.source, c.start, c.end]), [[1, 418950, 441000], [2, 0, 24000]]);
  assert.ok(e.remove(9.5, 10.5));
  assert.deepEqual(frames(e), [[1, 0, 418950], [2, 24000, 96000]]);
  assert.ok(e.insert(0, 0, piece));
  assert.deepEqual(frames(e), [[1, 418950, 441000], [2, 0, 24000], [1, 0, 418950], [2, 24000, 96000]]);
  assert.equal(e.duration(), 12);
  // Pasting over a selection replaces it.
  assert.ok(e.insert(0, 1, [newClip(2, 4800)]));
  assert.deepEqual(frames(e)[0], [2, 0, 4800]);
  assert.equal(e.duration(), 11.1);
});

test('times between frames round to the nearest frame; a cut at a join or outside changes nothing', () => {
  const e = twoSources();
  assert.ok(e.split(1 / 44100 * 10.4));
  assert.deepEqual(frames(e).slice(0, 2), [[1, 0, 10], [1, 10, 441000]]);
  const version = e.version;
  assert.equal(e.split(10 / 44100), false);
  assert.equal(e.split(0), false);
  assert.equal(e.split(99), false);
  assert.equal(e.remove(3, 3), false);
  assert.equal(e.version, version);
});

test('a split clip keeps its fade in on the left part and its fade out on the right', () => {
  const e = twoSources();
  assert.ok(e.setClip(0, { fade_in: 1, fade_out: 2, gain_db: -3 }));
  e.split(5);
  assert.deepEqual(e.clips.slice(0, 2).map((c) => [c.fade_in, c.fade_out, c.gain_db]), [[1, 0, -3], [0, 2, -3]]);
  // Fades no longer than the clip; gain within range.
  e.setClip(0, { fade_in: 99, gain_db: 99 });
  assert.deepEqual([e.clips[0].fade_in, e.clips[0].gain_db], [5, 24]);
});

test('undo and redo restore every state; a new edit drops the redo states', () => {
  const e = twoSources();
  const states = [frames(e)];
  e.remove(1, 2); states.push(frames(e));
  e.split(4); states.push(frames(e));
  e.move(0, 2); states.push(frames(e));
  for (let i = states.length - 2; i >= 0; i--) { assert.ok(e.undo()); assert.deepEqual(frames(e), states[i]); }
  assert.equal(e.undo(), false);
  for (let i = 1; i < states.length; i++) { assert.ok(e.redo()); assert.deepEqual(frames(e), states[i]); }
  assert.equal(e.redo(), false);
  e.undo();
  e.setCrossfade(0.5);
  assert.equal(e.redo(), false);
});

test('edit time and played time across crossfades', () => {
  const e = twoSources();
  e.setCrossfade(0.5);
  assert.equal(e.toOutput(3), 3);
  assert.equal(e.toOutput(10), 9.5);
  assert.equal(e.fromOutput(9.5), 10);
  assert.equal(e.fromOutput(9.6), 10.1);
  assert.equal(e.fromOutput(2), 2);
  assert.deepEqual(e.body(), {
    clips: [
      { source: 1, start: 0, end: 441000, gain_db: 0, fade_in: 0, fade_out: 0 },
      { source: 2, start: 0, end: 96000, gain_db: 0, fade_in: 0, fade_out: 0 },
    ],
    crossfade: 0.5,
  });
});

test('a source whose length became known: whole-file clips follow it in every state', () => {
  const e = new Edit((id) => rates[id]);
  e.reset({ clips: [newClip(1, 400000)], crossfade: 0 });
  e.split(2);
  e.sourceLength(1, 400000, 441000);
  assert.deepEqual(frames(e), [[1, 0, 88200], [1, 88200, 441000]]);
  e.undo();
  assert.deepEqual(frames(e), [[1, 0, 441000]]);
  // Shorter than expected: clips end at the real end, empty ones go.
  e.redo();
  e.sourceLength(1, 441000, 50000);
  assert.deepEqual(frames(e), [[1, 0, 50000]]);
});
