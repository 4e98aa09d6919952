// The studio's page in Debian's chromium against the built command: one
// file on the command line (so it opens at once), edited by mouse and by
// keys, played through the <audio> element, and exported; the exported
// files must equal, sample for sample, what `wavoryx edit` writes for the
// same ranges and options.
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { run, decode, startStudio, launchBrowser, waitLoaded, tempDir, wavoryx } from './harness.mjs';

const RATE = 44100;
let dir;
let outDir;
let studio;
let browser;
let page;

// 10 s of stereo whose level changes over time, so that a cut shows.
function makeSong(file) {
  run('sox', ['-n', '-r', String(RATE), '-c', '2', '-b', '16', file, 'synth', '10', 'sine', '220:660',
    'sine', '330', 'tremolo', '1.5', '90', 'vol', '0.7']);
}

const edit = () => page.evaluate(() => ({
  clips: window.studio.edit.clips.map((c) => [c.start, c.end, c.gain_db, c.fade_in, c.fade_out]),
  duration: window.studio.edit.duration(),
}));
const selection = async () => [
  Number(await page.getByLabel('Selection start').inputValue()),
  Number(await page.getByLabel('Selection end').inputValue()),
];
const button = (name) => page.getByRole('button', { name, exact: true });

async function selectTyped(a, b) {
  await page.getByLabel('Selection start').fill(String(a));
  await page.getByLabel('Selection end').fill(String(b));
  await page.getByLabel('Waveform').focus();
}

before(async () => {
  dir = tempDir();
  outDir = path.join(dir, 'out');
  fs.mkdirSync(outDir);
  makeSong(path.join(dir, 'song.wav'));
  // Recording takes a tone (the engine's test input) instead of a device.
  studio = await startStudio(['--out', outDir, 'song.wav'], { cwd: dir, env: { WAVORYX_AUDIO_IN: 'tone:440' } });
  browser = await launchBrowser();
  page = browser.page;
  await page.goto(studio.url);
  await waitLoaded(page);
});

after(async () => {
  if (browser) await browser.close();
  if (studio) {
    const { code } = await studio.stop();
    assert.equal(code, 130, `wavoryx studio ended with ${code}: ${studio.stderr()}`);
  }
  if (dir) fs.rmSync(dir, { recursive: true, force: true });
});

test('the one file given is listed and open, drawn over the whole edit', async () => {
  await assert.doesNotReject(button('song.wav').waitFor());
  const e = await edit();
  assert.deepEqual(e.clips, [[0, 10 * RATE, 0, 0, 0]]);
  await page.waitForFunction(() => window.studioStats.firstWaveformMs !== null);
  // Something other than the background was drawn in the middle row.
  const drawn = await page.evaluate(() => {
    const c = document.querySelector('canvas[aria-label="Waveform"]');
    const ctx = c.getContext('2d');
    const row = ctx.getImageData(0, Math.floor(c.height * 0.6), c.width, 1).data;
    let lit = 0;
    for (let i = 0; i < row.length; i += 4) if (row[i + 2] > 200) lit++;
    return lit / (row.length / 4);
  });
  assert.ok(drawn > 0.3, `only ${drawn} of the waveform's middle row is drawn`);
});

test('the side panel shows the file facts and, once measured, the loudness info --loudness gives', async () => {
  const facts = page.getByRole('region', { name: 'File facts' });
  await facts.getByText('44100 Hz').waitFor();
  await button('Measure loudness').click();
  await facts.getByText('LUFS').waitFor({ timeout: 60000 });
  const [ref] = JSON.parse(run(wavoryx, ['info', '--loudness', '--json', 'song.wav'], { cwd: dir }).toString());
  const text = await facts.textContent();
  assert.ok(text.includes(`${ref.integratedLufs.toFixed(1)} LUFS`), `${text} against ${ref.integratedLufs}`);
  assert.ok(text.includes(`${ref.truePeakDbtp.toFixed(1)} dBTP`), `${text} against ${ref.truePeakDbtp}`);
});

test('selection by mouse drag, by keys and by typing', async () => {
  const canvas = page.getByLabel('Waveform');
  const box = await canvas.boundingBox();
  const y = box.y + box.height * 0.6;
  await page.mouse.move(box.x + box.width * 0.25, y);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.5, y, { steps: 8 });
  await page.mouse.up();
  let [a, b] = await selection();
  assert.ok(Math.abs(a - 2.5) < 0.1 && Math.abs(b - 5) < 0.1, `mouse selection ${a}..${b}, not about 2.5..5`);

  await page.keyboard.press('Home');
  assert.deepEqual(await selection(), [0, 0]);
  for (let i = 0; i < 4; i++) await page.keyboard.press('Shift+ArrowRight');
  [a, b] = await selection();
  assert.ok(a === 0 && b > 0 && b < 1, `Shift+ArrowRight selected ${a}..${b}`);
  await page.keyboard.press('Shift+End');
  assert.deepEqual(await selection(), [0, 10]);
  await page.keyboard.press('ArrowRight');
  [a, b] = await selection();
  assert.equal(a, b, 'an arrow without Shift leaves no selection');

  await selectTyped(2, 3.5);
  assert.deepEqual(await selection(), [2, 3.5]);
});

test('cut, undo and redo, by button and by keys', async () => {
  await selectTyped(2, 3.5);
  await button('Cut').click();
  const cut = [[0, 2 * RATE, 0, 0, 0], [3.5 * RATE, 10 * RATE, 0, 0, 0]];
  assert.deepEqual((await edit()).clips, cut);
  assert.equal((await edit()).duration, 8.5);
  await page.getByLabel('Waveform').focus();
  await page.keyboard.press('Control+z');
  assert.deepEqual((await edit()).clips, [[0, 10 * RATE, 0, 0, 0]]);
  await button('Redo').click();
  assert.deepEqual((await edit()).clips, cut);
  await button('Undo').click();
  await page.keyboard.press('Control+Shift+Z');
  assert.deepEqual((await edit()).clips, cut);
});

test('the other edit keys: copy, paste, delete, split, move, gain, fade, zoom, help', async () => {
  const before = await edit();
  await selectTyped(0, 1);
  await page.keyboard.press('Control+c');
  await page.keyboard.press('End');
  await page.keyboard.press('Control+v');
  let e = await edit();
  assert.deepEqual(e.clips.at(-1), [0, RATE, 0, 0, 0], 'Ctrl+V appends the copied second at the end');
  assert.equal(e.duration, before.duration + 1);
  await page.keyboard.press('Control+z');

  await selectTyped(1, 1);
  await page.keyboard.press('s');
  e = await edit();
  assert.deepEqual(e.clips.slice(0, 2), [[0, RATE, 0, 0, 0], [RATE, 2 * RATE, 0, 0, 0]]);
  // At a join the cursor belongs to the clip after it.
  await page.keyboard.press('Alt+ArrowLeft');
  e = await edit();
  assert.deepEqual(e.clips.slice(0, 2), [[RATE, 2 * RATE, 0, 0, 0], [0, RATE, 0, 0, 0]], 'Alt+ArrowLeft moves the clip');
  // Dragging a clip by its title bar (the strip under the time axis) to
  // the end of the edit, then back by Ctrl+Z.
  const box = await page.getByLabel('Waveform').boundingBox();
  const title = box.y + 31;
  const xOf = (t) => page.evaluate((s) => window.studio.view.xOfTime(s), t);
  await page.mouse.move(box.x + await xOf(0.5), title);
  await page.mouse.down();
  await page.mouse.move(box.x + await xOf(e.duration - 0.5), title, { steps: 6 });
  await page.mouse.up();
  const dragged = await edit();
  assert.deepEqual(dragged.clips.at(-1), [RATE, 2 * RATE, 0, 0, 0], 'the dragged clip is the last one');
  await page.keyboard.press('Control+z');
  await page.keyboard.press('Home');
  await page.keyboard.press('g');
  await page.keyboard.press('g');
  e = await edit();
  assert.equal(e.clips[0][2], 2, 'G raises the gain of the clip at the cursor');
  await selectTyped(1, 1.25);
  await page.keyboard.press('f');
  assert.equal((await edit()).clips[1][3], 0.25, 'F fades the clip in over the selection');

  await selectTyped(4, 5);
  await page.keyboard.press('Delete');
  assert.equal((await edit()).duration, before.duration - 1);
  for (let i = 0; i < 6; i++) await page.keyboard.press('Control+z'); // delete, fade, gain twice, move, split
  assert.deepEqual(await edit(), before);

  const span = () => page.evaluate(() => window.studio.view.spp * window.studio.view.width);
  const whole = await span();
  await page.keyboard.type('+');
  await page.keyboard.type('+');
  assert.ok(Math.abs((await span()) - whole / 4) < 1e-6, '+ zooms in by two');
  await button('Zoom out').click();
  await page.keyboard.type('-');
  assert.ok(Math.abs((await span()) - whole) < 1e-6, 'zoom out comes back to the whole edit');

  await button('Help').click();
  const help = page.getByRole('region', { name: 'Help' });
  await assert.doesNotReject(help.waitFor());
  for (const words of ['Ctrl+Z', 'Ctrl+Shift+Z', 'Space', 'Delete', 'Home / End']) {
    assert.ok((await help.textContent()).includes(words), `the help names ${words}`);
  }
  await button('Help').click();
});

test('play: the audio element advances and the playhead follows', async () => {
  await selectTyped(1, 1);
  await button('Play').click();
  await page.waitForFunction(() => document.querySelector('audio').currentTime > 1.3, null, { timeout: 15000 });
  const first = await page.evaluate(() => window.studio.playhead);
  await page.waitForTimeout(400);
  const later = await page.evaluate(() => window.studio.playhead);
  assert.ok(first >= 1 && later > first, `playhead ${first} then ${later}`);
  await button('Pause').click();
  assert.ok(await page.evaluate(() => document.querySelector('audio').paused));
  await page.screenshot({ path: path.join(process.env.STUDIO_ARTIFACTS || dir, 'studio.png') });
});

async function exportAs(name, format, bitrate) {
  const panel = page.getByRole('region', { name: 'Export panel' });
  if (!(await panel.isVisible())) await button('Export').click();
  await page.getByLabel('Format').selectOption({ label: format });
  await page.getByLabel('File name').fill(name);
  if (bitrate) await page.getByLabel('Bit rate').selectOption(String(bitrate));
  await button('Save').click();
  await page.getByRole('link', { name: 'Download' }).waitFor({ timeout: 60000 });
  return page.getByRole('link', { name: 'Download' }).getAttribute('href');
}

function sameSamples(ours, reference) {
  const a = decode(ours);
  const b = decode(reference);
  assert.equal(a.length, b.length, `${path.basename(ours)}: ${a.length / 4} samples, wavoryx edit ${b.length / 4}`);
  assert.ok(a.equals(b), `${path.basename(ours)} differs from wavoryx edit's samples`);
}

test('export equals wavoryx edit of the same ranges; an existing name is replaced only when confirmed', async () => {
  // The edit as the cut above left it.
  assert.deepEqual((await edit()).clips, [[0, 2 * RATE, 0, 0, 0], [3.5 * RATE, 10 * RATE, 0, 0, 0]]);
  const ranges = ['song.wav@0-2', 'song.wav@3.5-'];

  const href = await exportAs('cut.wav', 'WAV');
  run(wavoryx, ['edit', ...ranges, '-o', path.join(dir, 'ref.wav')], { cwd: dir });
  sameSamples(path.join(outDir, 'cut.wav'), path.join(dir, 'ref.wav'));
  const size = await page.evaluate(async (url) => (await (await fetch(url)).arrayBuffer()).byteLength, href);
  assert.equal(size, fs.statSync(path.join(outDir, 'cut.wav')).size, 'Download serves the written file');

  // The same name again: the page asks; saying no leaves the file alone.
  const written = fs.readFileSync(path.join(outDir, 'cut.wav'));
  page.once('dialog', (d) => d.dismiss());
  await button('Save').click();
  await page.getByText('Not saved.').waitFor();
  assert.ok(fs.readFileSync(path.join(outDir, 'cut.wav')).equals(written));
  let asked = '';
  page.once('dialog', (d) => { asked = d.message(); d.accept(); });
  await button('Save').click();
  await page.getByRole('link', { name: 'Download' }).waitFor({ timeout: 60000 });
  assert.match(asked, /cut\.wav/);

  await exportAs('cut.mp3', 'MP3', 192);
  run(wavoryx, ['edit', ...ranges, '-o', path.join(dir, 'ref.mp3'), '--bitrate', '192'], { cwd: dir });
  sameSamples(path.join(outDir, 'cut.mp3'), path.join(dir, 'ref.mp3'));

  assert.deepEqual(fs.readdirSync(outDir).sort(), ['cut.mp3', 'cut.wav'], 'nothing else is left in --out');
  assert.deepEqual(browser.problems, []);
});

test('record: the level shows live, the take is listed and goes into the edit at the cursor', async () => {
  const before = await edit();
  await page.getByLabel('Waveform').focus();
  await page.keyboard.press('End');
  await button('Record').click();
  const meter = page.getByRole('meter', { name: 'Input level' });
  await page.waitForFunction(() => Number(document.getElementById('level').getAttribute('aria-valuenow')) > -20);
  assert.ok(await meter.isVisible());
  await page.waitForTimeout(500);
  await button('Stop').click();
  await button('take-1.wav').waitFor();
  await page.waitForFunction((n) => window.studio.edit.clips.length === n + 1, before.clips.length);
  const e = await edit();
  assert.deepEqual(e.clips.slice(0, -1), before.clips);
  const take = e.clips.at(-1);
  assert.ok(take[0] === 0 && take[1] > 0.4 * RATE, `the take's clip ${take}`);
  assert.equal(await meter.isVisible(), false);
  assert.deepEqual(browser.problems, []);
});

// A studio of its own on a file with known gaps (its own browser too: the
// token cookie is per host, not per port).
test('Find silences shades the silences wavoryx silence finds, inside the kept clips only', async () => {
  const gapsDir = tempDir();
  const parts = [];
  [2, 1.5, 0.5, 1.2].forEach((gap, i) => {
    parts.push(path.join(gapsDir, `p${i}.wav`));
    run('sox', ['-n', '-r', String(RATE), '-c', '2', parts[i], 'synth', '1', 'sine', String(440 + 110 * i),
      'pad', '0', String(gap)]);
  });
  run('sox', [...parts, path.join(gapsDir, 'gaps.wav')]);
  const own = await startStudio(['gaps.wav'], { cwd: gapsDir });
  const other = await launchBrowser();
  try {
    const p = other.page;
    await p.goto(own.url);
    await waitLoaded(p);
    await p.getByRole('button', { name: 'Find silences', exact: true }).click();
    await p.getByText('3 silences', { exact: true }).waitFor({ timeout: 60000 });
    const ref = JSON.parse(run(wavoryx, ['silence', '--json', 'gaps.wav'], { cwd: gapsDir }).toString());
    const state = await p.evaluate(() => window.studioStats.silences);
    const served = await p.evaluate(async (source) => (await (await fetch('/api/silences', {
      method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify({ source }),
    })).json()).silences, state.source);
    assert.deepEqual(state.intervals, served);
    assert.deepEqual(state.intervals.map((s) => [+(s.start / RATE).toFixed(3), +(s.end / RATE).toFixed(3)]),
      ref.map((r) => [r.start, r.end]));
    await p.waitForFunction(() => window.studioStats.silenceRegions.length === 3);
    const whole = await p.evaluate(() => window.studioStats.silenceRegions);
    assert.deepEqual(whole, state.intervals.map((s) => [s.start / RATE, s.end / RATE]));

    // Cutting from 0 to the middle of the first silence keeps its second
    // half, now at the edit's start; the rest move 1.5 s earlier.
    await p.getByLabel('Selection start').fill('0');
    await p.getByLabel('Selection end').fill('1.5');
    await p.getByLabel('Waveform').focus();
    await p.getByRole('button', { name: 'Cut', exact: true }).click();
    await p.waitForFunction(() => window.studioStats.silenceRegions[0][0] === 0);
    const cut = await p.evaluate(() => window.studioStats.silenceRegions);
    const near = (a, b) => Math.abs(a - b) < 1e-9;
    assert.equal(cut.length, 3);
    cut.forEach(([a, b], i) => {
      const s = state.intervals[i];
      assert.ok(near(a, Math.max(0, s.start / RATE - 1.5)) && near(b, s.end / RATE - 1.5), `${cut} against ${whole}`);
    });
    await p.screenshot({ path: path.join(process.env.STUDIO_ARTIFACTS || gapsDir, 'studio-silences.png') });
    assert.deepEqual(other.problems, []);
  } finally {
    await other.close();
    const { code } = await own.stop();
    assert.equal(code, 130, `wavoryx studio ended with ${code}: ${own.stderr()}`);
    fs.rmSync(gapsDir, { recursive: true, force: true });
  }
});
