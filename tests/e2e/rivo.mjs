// What the browser tests share: starting `rivo serve` on a fresh data folder, Debian's
// Chromium through playwright-core, and screenshots kept under the build folder.
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
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

// Notes of the Basic type, one new card each in Default, due in this order: [front, back] or
// [front, back, tags].
export function addBasicNotes(data, notes) {
  const mid = sqlOn(data, "select key from json_each((select models from col)) where json_extract(value, '$.name') = 'Basic'");
  const q = (s) => `'${s.replace(/'/g, "''")}'`;
  let id = Date.now() - 100000;
  const rows = notes.map(([front, back, tags = ''], i) => {
    id += 1;
    return `insert into notes values (${id}, 'g${id}', ${mid}, 0, -1, ${q(tags ? ` ${tags} ` : '')}, ${q(front)} || char(31) || ${q(back)}, ${q(front)}, 0, 0, '');
      insert into cards values (${id}, ${id}, 1, 0, 0, -1, 0, 0, ${i + 1}, 0, 0, 0, 0, 0, 0, 0, 0, '');`;
  });
  sqlOn(data, rows.join('\n'));
}

// A new collection in `data` with `count` new Basic cards in Default, "Q0"/"A0" first and due
// in that order; `tags(i)` names each note's tags.
export function basicCollection(data, count, tags = () => '') {
  if (rivoSync(['--data', data, 'init']).status !== 0) throw new Error('rivo init failed');
  addBasicNotes(data, Array.from({ length: count }, (_, i) => [`Q${i}`, `A${i}`, tags(i)]));
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

// Preferences of the first profile, written into the data folder before the program starts.
export function setPrefs(data, prefs) {
  const file = path.join(data, 'Preferences.json');
  const all = JSON.parse(fs.readFileSync(file, 'utf8'));
  for (const [k, v] of Object.entries(prefs)) all[`User 1_${k}`] = v;
  fs.writeFileSync(file, JSON.stringify(all));
}

// For test files whose tests each start their own program on their own data folder: one
// browser for the file, and after its last test whatever a failed test left running is
// stopped and every folder removed, so that the run still ends.
export function perTestServers() {
  const running = new Set();
  const folders = [];
  const servers = {};
  before(async () => { servers.chrome = await browser(); });
  after(async () => {
    for (const stop of running) await stop();
    await servers.chrome.close();
    for (const dir of folders) fs.rmSync(dir, { recursive: true, force: true });
  });
  // A data folder, removed at the end.
  servers.folder = () => {
    const dir = tempDir();
    folders.push(dir);
    return dir;
  };
  // A data folder made by `rivo init`, with these preferences.
  servers.init = (prefs = {}) => {
    const data = servers.folder();
    if (rivoSync(['--data', data, 'init']).status !== 0) throw new Error('rivo init failed');
    setPrefs(data, prefs);
    return data;
  };
  // The program on `data` and a page on it at the deck list; `welcome` answers a first run's.
  servers.start = async (data, { context = servers.chrome.context, welcome = false } = {}) => {
    const rivo = await serve(data);
    const page = await open(context, rivo.url);
    if (welcome) await answer(page, 'OK');
    await noSpinner(page);
    const stop = async () => {
      running.delete(stop);
      await page.close().catch(() => {});
      await rivo.stop();
    };
    running.add(stop);
    return { data, rivo, page, stop };
  };
  return servers;
}

// For test files whose tests walk on through one program: a data folder made by `prepare`, the
// program on it and a page at the deck list, from before the first test until after the last.
// `ready` gets { chrome, data, rivo, page } once they exist.
export function sharedSession(prepare, ready) {
  const s = {};
  before(async () => {
    s.chrome = await browser();
    s.data = tempDir();
    prepare(s.data);
    s.rivo = await serve(s.data);
    s.page = await open(s.chrome.context, s.rivo.url);
    await noSpinner(s.page);
    ready(s);
  });
  after(async () => {
    await s.page?.close().catch(() => {});
    await s.chrome?.close();
    await s.rivo?.stop();
    if (s.data) fs.rmSync(s.data, { recursive: true, force: true });
  });
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
