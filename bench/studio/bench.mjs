// The studio's targets, measured in Debian's chromium (headless) against
// the built command on a long MP3 (3 hours unless STUDIO_BENCH_MINUTES
// says otherwise; made once with ffmpeg and kept in the work folder).
// Prints one markdown table: measure, target, result. The page reports
// its own draw and play times in window.studioStats.
import fs from 'node:fs';
import path from 'node:path';
import { execFileSync } from 'node:child_process';
import { run, startStudio, launchBrowser, wavoryx } from '../../tests/studio/harness.mjs';

const work = process.env.STUDIO_BENCH_DIR;
const minutes = Number(process.env.STUDIO_BENCH_MINUTES || 180);
const steps = Number(process.env.STUDIO_BENCH_STEPS || 12);
const name = `long-${minutes}min.mp3`;
const song = path.join(work, name);
const outDir = path.join(work, 'out');

function makeLong() {
  if (fs.existsSync(song)) return;
  console.error(`bench: making ${name} (${minutes} minutes, 128 kbit/s) with ffmpeg`);
  const seconds = minutes * 60;
  // Two tones under a slow tremolo and quiet pink noise: something to see
  // at every zoom.
  run('ffmpeg', ['-v', 'error', '-nostdin', '-y',
    '-f', 'lavfi', '-i', `sine=f=220:d=${seconds}:sample_rate=44100`,
    '-f', 'lavfi', '-i', `anoisesrc=c=pink:a=0.05:d=${seconds}:r=44100`,
    '-filter_complex', '[0][1]amix=inputs=2,tremolo=f=0.3:d=0.8,aformat=channel_layouts=stereo',
    '-c:a', 'libmp3lame', '-b:a', '128k', `${song}.part.mp3`]);
  fs.renameSync(`${song}.part.mp3`, song);
}

const median = (xs) => {
  const s = [...xs].sort((a, b) => a - b);
  return s.length ? s[Math.floor(s.length / 2)] : NaN;
};

// Resident memory (kB) of chromium's renderer processes under the browser
// that uses this profile: the tab is the biggest of them.
function rendererMemory(profile) {
  const ps = execFileSync('ps', ['-eo', 'pid=,ppid=,rss=,args='], { maxBuffer: 1 << 26 }).toString().split('\n');
  const rows = ps.map((line) => /^\s*(\d+)\s+(\d+)\s+(\d+)\s+(.*)$/.exec(line)).filter(Boolean)
    .map((m) => ({ pid: +m[1], ppid: +m[2], rss: +m[3], args: m[4] }));
  const root = rows.find((r) => r.args.includes(`--user-data-dir=${profile}`) && !r.args.includes('--type='));
  if (!root) return null;
  const mine = new Set([root.pid]);
  let grew = true;
  while (grew) {
    grew = false;
    for (const r of rows) if (!mine.has(r.pid) && mine.has(r.ppid)) { mine.add(r.pid); grew = true; }
  }
  const renderers = rows.filter((r) => mine.has(r.pid) && r.args.includes('--type=renderer'));
  if (!renderers.length) return null;
  const tab = renderers.reduce((a, b) => (b.rss > a.rss ? b : a));
  // Proportional size: the shared libraries counted once per sharer.
  let pss = null;
  try {
    const m = /^Pss:\s+(\d+) kB/m.exec(fs.readFileSync(`/proc/${tab.pid}/smaps_rollup`, 'utf8'));
    if (m) pss = Number(m[1]);
  } catch { /* not readable: resident size only */ }
  return { rss: tab.rss, pss };
}

async function main() {
  fs.mkdirSync(outDir, { recursive: true });
  makeLong();
  const rows = [];
  const details = [];
  const studio = await startStudio(['--out', outDir, name], { cwd: work });
  const browser = await launchBrowser({ width: 1600, height: 900 });
  const { page } = browser;
  try {
    const stats = () => page.evaluate(() => window.studioStats);
    await page.goto(studio.url);
    await page.waitForFunction(() => window.studioStats.firstWaveformMs !== null, null, { timeout: 120000 });
    const first = (await stats()).firstWaveformMs;
    const loading = await page.evaluate(() => [...window.studio.sources.values()].some((s) => !s.done));
    rows.push([`${minutes}-minute MP3: first waveform drawn after the page asked`, '≤ 1000 ms',
      `${first.toFixed(0)} ms${loading ? ' (file still loading)' : ''}`]);

    // Zoom and scroll while loading goes on, then again once loaded, with
    // the page's peaks forgotten first so that every step asks the server.
    const stepTimes = async (label) => {
      const times = [];
      await page.evaluate(() => { window.studio.peaks.entries.clear(); });
      const press = async (key, what) => {
        const n = (await stats()).redraws.length;
        await page.keyboard.press(key);
        await page.waitForFunction((k) => window.studioStats.redraws.length > k, n, { timeout: 30000 }).catch(() => {});
        const s = await stats();
        if (s.redraws.length > n) {
          const ms = s.redraws.at(-1).ms;
          times.push(ms);
          const span = await page.evaluate(() => window.studio.view.spp * window.studio.view.width);
          details.push([label, what, `${span.toFixed(span < 10 ? 3 : 0)} s`, ms.toFixed(1)]);
        }
      };
      await page.getByLabel('Waveform').focus();
      await page.keyboard.press('0');
      for (let i = 0; i < steps; i++) await press('Equal', 'zoom in');
      for (let i = 0; i < steps; i++) await press('PageDown', 'scroll');
      for (let i = 0; i < steps; i++) await press('Minus', 'zoom out');
      const sorted = [...times].sort((a, b) => a - b);
      rows.push([`zoom or scroll step redrawn (${label}; median / 90th percentile / max of ${times.length})`, '≤ 50 ms',
        `${median(times).toFixed(1)} / ${sorted[Math.floor(sorted.length * 0.9)].toFixed(1)} / ${sorted.at(-1).toFixed(1)} ms`]);
    };
    const done = () => page.evaluate(() => [...window.studio.sources.values()].every((s) => s.done));
    if (!(await done())) await stepTimes('file loading');
    const loadStart = Date.now();
    await page.waitForFunction(() => [...window.studio.sources.values()].every((s) => s.done), null, { timeout: 1800000, polling: 500 });
    rows.push(['(file loaded in the server)', '', `${((Date.now() - loadStart) / 1000).toFixed(1)} s after the first draw measures`]);
    await stepTimes('loaded');

    // An edit, then play; the edit's list is posted in the background,
    // so a click right away may still wait for it.
    const playAfterEdit = async (wait) => {
      if (!(await page.evaluate(() => window.studio.player.playing))) {
        const d = await page.evaluate(() => window.studio.edit.duration());
        const a = d * 0.3;
        await page.getByLabel('Selection start').fill(a.toFixed(3));
        await page.getByLabel('Selection end').fill((a + Math.min(60, d * 0.02)).toFixed(3));
        await page.getByRole('button', { name: 'Delete', exact: true }).click();
        await page.getByLabel('Selection start').fill((d * 0.01).toFixed(3));
        await page.getByLabel('Selection end').fill((d * 0.01).toFixed(3));
        if (wait) await page.waitForTimeout(wait);
        await page.getByRole('button', { name: 'Play', exact: true }).click();
        await page.waitForFunction(() => window.studioStats.playStartMs !== null, null, { timeout: 30000 });
        const ms = (await stats()).playStartMs;
        await page.getByRole('button', { name: 'Pause', exact: true }).click();
        return ms;
      }
      return NaN;
    };
    const plays = [];
    const playsAtOnce = [];
    for (let i = 0; i < 5; i++) plays.push(await playAfterEdit(500));
    for (let i = 0; i < 5; i++) playsAtOnce.push(await playAfterEdit(0));
    rows.push(['after an edit, play: audio time advances (median of 5)', '≤ 200 ms', `${median(plays).toFixed(0)} ms`]);
    rows.push(['the same, Play clicked right after the edit', '≤ 200 ms', `${median(playsAtOnce).toFixed(0)} ms`]);

    const client = await page.context().newCDPSession(page);
    await client.send('HeapProfiler.collectGarbage').catch(() => {});
    const heap = await client.send('Runtime.getHeapUsage');
    const mem = rendererMemory(browser.profile);
    rows.push([`JS heap of the page (${minutes}-minute file)`, '≤ 200 MB', `${(heap.usedSize / 1048576).toFixed(1)} MB used of ${(heap.totalSize / 1048576).toFixed(1)} MB`]);
    rows.push(["tab's renderer process, resident", '≤ 300 MB', !mem ? 'not found'
      : `${(mem.rss / 1024).toFixed(0)} MB resident${mem.pss === null ? '' : `, ${(mem.pss / 1024).toFixed(0)} MB proportional`}`]);

    // Export of the edit (ten deletions of up to a minute) as
    // MP3, against `wavoryx edit` of the same ranges.
    await exportRow();
  } catch (err) {
    rows.push(['(stopped)', '', String(err.message).split('\n')[0]]);
  } finally {
    await browser.close();
    await studio.stop();
    fs.rmSync(outDir, { recursive: true, force: true });
  }

  async function exportRow() {
    const clips = await page.evaluate(() => window.studio.edit.body());
    await page.getByRole('button', { name: 'Export', exact: true }).click();
    await page.getByLabel('Format').selectOption({ label: 'MP3' });
    await page.getByLabel('File name').fill('studio-export.mp3');
    await page.getByLabel('Bit rate').selectOption('128');
    const t0 = Date.now();
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await Promise.race([
      page.getByRole('link', { name: 'Download' }).waitFor({ timeout: 1800000 }),
      page.locator('#export-result', { hasText: 'Export failed' }).waitFor({ timeout: 1800000 }).then(async () => {
        throw new Error(await page.locator('#export-result').textContent());
      }),
    ]);
    const studioMs = Date.now() - t0;
    const rate = 44100;
    const ranges = clips.clips.map((c) => `${name}@${(c.start / rate).toFixed(6)}-${(c.end / rate).toFixed(6)}`);
    const t1 = Date.now();
    run(wavoryx, ['edit', ...ranges, '-o', path.join(outDir, 'edit-export.mp3'), '--bitrate', '128'], { cwd: work });
    const editMs = Date.now() - t1;
    rows.push(['export as MP3 128k: studio (loaded file) / wavoryx edit (decodes too)', 'within 10 %',
      `${(studioMs / 1000).toFixed(1)} s / ${(editMs / 1000).toFixed(1)} s (${((studioMs / editMs) * 100).toFixed(0)} %)`]);
  }
  console.log(`\nwavoryx studio, ${minutes}-minute MP3, headless chromium, ${new Date().toISOString()}\n`);
  console.log('| measure | target | result |');
  console.log('|---|---|---|');
  for (const r of rows) console.log(`| ${r.join(' | ')} |`);
  console.log('\nEach zoom or scroll step (view span after the step, time from the key to the finished drawing):\n');
  console.log('| file | step | view span | ms |');
  console.log('|---|---|---|---|');
  for (const d of details) console.log(`| ${d.join(' | ')} |`);
}

main().catch((err) => { console.error(err); process.exit(1); });
