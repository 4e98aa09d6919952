// What the studio's browser tests and its benchmark share: the command
// started on files in a temporary folder, Debian's chromium driven by
// playwright-core (from the build folder's node_modules), and decoding
// with ffmpeg to compare audio.
import { spawn, execFileSync } from 'node:child_process';
import { createRequire } from 'node:module';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import readline from 'node:readline';

export const wavoryx = process.env.STUDIO_WAVORYX;
const npmDir = process.env.STUDIO_NPM;
const chromiumPath = process.env.STUDIO_CHROMIUM || '/usr/bin/chromium';

export function tempDir(prefix = 'wavoryx-studio-') {
  return fs.mkdtempSync(path.join(os.tmpdir(), prefix));
}

export function run(command, args, options = {}) {
  return execFileSync(command, args, { maxBuffer: 1 << 30, stdio: ['ignore', 'pipe', 'pipe'], ...options });
}

// Samples as 32-bit floats, interleaved (ffmpeg decodes every format the
// studio writes).
export function decode(file) {
  return run('ffmpeg', ['-v', 'error', '-nostdin', '-i', file, '-f', 'f32le', '-acodec', 'pcm_f32le', '-']);
}

// `wavoryx studio --no-browser --port 0 ARGS...`; resolves once it printed
// its one line.
export function startStudio(args, { cwd, env } = {}) {
  const child = spawn(wavoryx, ['studio', '--no-browser', '--port', '0', ...args], {
    cwd, env: { ...process.env, ...env }, stdio: ['ignore', 'pipe', 'pipe'],
  });
  let stderr = '';
  child.stderr.on('data', (d) => { stderr += d; });
  const exited = new Promise((resolve) => child.on('exit', (code, signal) => resolve({ code, signal })));
  const line = new Promise((resolve, reject) => {
    const lines = readline.createInterface({ input: child.stdout });
    lines.once('line', resolve);
    exited.then(({ code }) => reject(new Error(`wavoryx studio ended (${code}) before printing its address: ${stderr}`)));
  });
  return line.then((text) => {
    const match = /^wavoryx studio: (http:\/\/127\.0\.0\.1:(\d+)\/\?token=([0-9a-f]{32}))$/.exec(text);
    if (!match) throw new Error(`unexpected first line: ${text}`);
    return {
      url: match[1],
      origin: `http://127.0.0.1:${match[2]}`,
      child,
      stderr: () => stderr,
      // Ctrl-C: the command ends with 130.
      async stop() {
        if (child.exitCode === null && child.signalCode === null) child.kill('SIGINT');
        return exited;
      },
    };
  });
}

export function playwright() {
  const require = createRequire(path.join(npmDir, 'package.json'));
  return require('playwright-core');
}

// chromium as this closed network needs it: without the networking flags
// it waits for services it cannot reach.
export async function launchBrowser({ width = 1280, height = 720 } = {}) {
  const { chromium } = playwright();
  const profile = tempDir('wavoryx-studio-profile-');
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: chromiumPath,
    headless: true,
    viewport: { width, height },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      '--autoplay-policy=no-user-gesture-required'],
  });
  const page = context.pages()[0] || await context.newPage();
  const problems = [];
  page.on('pageerror', (e) => problems.push(`page error: ${e.message}`));
  return {
    context,
    page,
    problems,
    profile,
    async close() {
      await context.close();
      fs.rmSync(profile, { recursive: true, force: true });
    },
  };
}

// The page's own state (window.studio) once every opened source is loaded.
export async function waitLoaded(page, timeout = 60000) {
  await page.waitForFunction(() => {
    const s = window.studio;
    return s && s.sources.size > 0 && [...s.sources.values()].every((x) => x.done) && !s.edit.empty;
  }, null, { timeout });
}
