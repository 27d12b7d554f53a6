// What the browser tests share: starting `rivo serve` on a fresh data folder, Debian's
// Chromium through playwright-core, and screenshots kept under the build folder.
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

const root = path.resolve(import.meta.dirname, '../..');
export const RIVO = process.env.RIVO_BIN || path.join(root, 'build/rivo');
export const RIVO_GEN = process.env.RIVO_GEN || path.join(root, 'build/rivo-gen');
export const ARTIFACTS = process.env.RIVO_ARTIFACTS || path.join(root, 'build/e2e-artifacts');

export function tempDir(prefix = 'rivo-e2e-') {
  return fs.mkdtempSync(path.join(os.tmpdir(), prefix));
}

// Runs a rivo command to its end.
export function rivoSync(args) {
  const r = spawnSync(RIVO, args, { encoding: 'utf8', timeout: 20000 });
  return { status: r.status, out: r.stdout, err: r.stderr };
}

// The first profile's collection file in `data`, and a statement run on it by sqlite3.
export const collectionOf = (data) => path.join(data, 'profiles/User 1/collection.rivo2');
export const sqlOn = (data, statement) =>
  execFileSync('sqlite3', ['-cmd', '.timeout 5000', collectionOf(data), statement], { encoding: 'utf8' }).trim();

// A new collection in `data` with `count` new Basic cards in Default, "Q0"/"A0" first and due
// in that order; `tags(i)` names each note's tags.
export function basicCollection(data, count, tags = () => '') {
  if (rivoSync(['--data', data, 'init']).status !== 0) throw new Error('rivo init failed');
  const mid = sqlOn(data, "select key from json_each((select models from col)) where json_extract(value, '$.name') = 'Basic'");
  let id = Date.now() - 100000;
  const rows = [];
  for (let i = 0; i < count; i++) {
    id += 1;
    const t = tags(i) ? ` ${tags(i)} ` : '';
    rows.push(`insert into notes values (${id}, 'g${id}', ${mid}, 0, -1, '${t}', 'Q${i}' || char(31) || 'A${i}', 'Q${i}', 0, 0, '');
      insert into cards values (${id}, ${id}, 1, 0, 0, -1, 0, 0, ${i + 1}, 0, 0, 0, 0, 0, 0, 0, 0, '');`);
  }
  sqlOn(data, rows.join('\n'));
}

export function generate(data, { notes = 2000, decks = 30 } = {}) {
  const r = spawnSync(RIVO_GEN, ['--data', data, '--notes', String(notes), '--cards', String(notes * 2),
    '--decks', String(decks), '--revlog', String(notes * 4)], { encoding: 'utf8' });
  if (r.status !== 0) throw new Error('rivo-gen failed: ' + r.stderr);
}

// `rivo serve` on `data`, resolved once it has printed its address.
export function serve(data, extra = []) {
  const proc = spawn(RIVO, ['--data', data, 'serve', '--no-browser', '--port', '0', ...extra],
    { stdio: ['ignore', 'pipe', 'pipe'] });
  let out = '';
  let err = '';
  proc.stderr.on('data', (d) => { err += d; });
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error('rivo serve printed no address: ' + out + err)), 10000);
    proc.stdout.on('data', (d) => {
      out += d;
      const m = out.match(/running at (http:\/\/\S+)/);
      if (m) {
        clearTimeout(timer);
        resolve({
          url: m[1],
          origin: new URL(m[1]).origin,
          proc,
          output: () => out,
          errors: () => err,
          stop: (signal = 'SIGTERM') => new Promise((done) => {
            if (proc.exitCode !== null) return done(proc.exitCode);
            proc.once('exit', (code, sig) => done(code ?? sig));
            proc.kill(signal);
          }),
        });
      }
    });
    proc.once('exit', (code) => { clearTimeout(timer); reject(new Error(`rivo serve exited ${code}: ${err}`)); });
  });
}

// `args`: more switches for Chromium (a fake microphone).
export async function browser(args = []) {
  const profile = tempDir('rivo-chromium-');
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync', ...args],
    viewport: { width: 1280, height: 800 },
  });
  const close = async () => {
    await context.close();
    fs.rmSync(profile, { recursive: true, force: true });
  };
  return { context, close };
}

// A page on Rivo with errors of its scripts collected.
export async function open(context, url) {
  const page = await context.newPage();
  page.errors = [];
  page.on('pageerror', (e) => page.errors.push(e.message));
  await page.goto(url);
  await page.locator('#title').filter({ hasText: /\S/ }).waitFor();
  return page;
}

// Rivo serving `data`, and a page on it past the first run's welcome.
export async function launched(data, extra = []) {
  const rivo = await serve(data, extra);
  const chrome = await browser();
  const page = await open(chrome.context, rivo.url);
  await answer(page, 'OK');  // the welcome
  await noSpinner(page);
  return { rivo, chrome, page };
}

export async function screenshots(page, name) {
  fs.mkdirSync(ARTIFACTS, { recursive: true });
  const size = page.viewportSize();
  for (const [label, width, height] of [['desktop', 1280, 800], ['phone', 390, 844]]) {
    await page.setViewportSize({ width, height });
    await page.waitForTimeout(100);
    await page.screenshot({ path: path.join(ARTIFACTS, `${name}-${label}.png`) });
  }
  await page.setViewportSize(size);
}

// Helpers on a page.
export const alertBox = (page) => page.locator('#alerts .scrim:last-child .dialog');
export const row = (page, id) => page.locator(`#content .row[data-id="${id}"]`);
export const rowIds = (page) => page.locator('#content .row').evaluateAll((rows) => rows.map((r) => r.dataset.id));
// The page drops a click made while its last screen event is unanswered (no double actions),
// so a test that clicks on as soon as the screen shows waits for the answer first.
export const answered = (page) => page.waitForFunction(() => !busyScreenEvent);
export async function noSpinner(page) {
  await page.locator('#popup').waitFor({ state: 'hidden' });
}
// Answers the alert in front by its button, typing `text` first when given.
export async function answer(page, button, text) {
  const box = alertBox(page);
  if (text !== undefined) await box.locator('input').first().fill(text);
  await box.getByRole('button', { name: button, exact: true }).click();
}
export async function expectAlert(page, title, text) {
  const box = alertBox(page);
  await box.waitFor();
  if (title) await box.locator('h2').filter({ hasText: title }).waitFor();
  if (text) await box.locator('p').filter({ hasText: text }).waitFor();
}
