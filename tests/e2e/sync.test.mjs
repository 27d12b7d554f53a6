// Syncing from the browser against a real rivo-syncd on 127.0.0.1: the login with its refusals,
// the sync screen's progress, the full-sync direction question both ways, the server's message,
// and the sync button's colour following local and remote changes.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { ARTIFACTS, RIVO, alertBox, answer, expectAlert, generate, launched, noSpinner, row, screenshots, tempDir } from './rivo.mjs';

const SYNCD = process.env.RIVO_SYNCD || path.resolve(import.meta.dirname, '../../build/rivo-syncd');
const MESSAGE = 'The server restarts at 22:00 for maintenance.';

let srv, syncd, data, rivo, chrome, page;

function startSyncd(dir) {
  const proc = spawn(SYNCD, ['--data', dir, '--port', '0'], { stdio: ['ignore', 'pipe', 'pipe'] });
  let out = '';
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error('rivo-syncd printed no address')), 10000);
    proc.stdout.on('data', (d) => {
      out += d;
      const m = out.match(/listening (http:\/\/\S+)/);
      if (m) { clearTimeout(timer); resolve({ proc, base: m[1] }); }
    });
    proc.once('exit', (code) => { clearTimeout(timer); reject(new Error(`rivo-syncd exited ${code}`)); });
  });
}

before(async () => {
  srv = tempDir('rivo-syncd-');
  const add = spawnSync(SYNCD, ['--data', srv, 'adduser', 'ann'], { input: 'secret\n', encoding: 'utf8' });
  assert.equal(add.status, 0, add.stderr);
  fs.writeFileSync(path.join(srv, 'message.txt'), MESSAGE + '\n');
  syncd = await startSyncd(srv);
  process.env.SYNC_BASE = syncd.base;
  data = tempDir();
  generate(data, { notes: 400, decks: 5 });
  ({ rivo, chrome, page } = await launched(data));
});

after(async () => {
  await chrome.close();
  await rivo.stop();
  syncd.proc.kill('SIGTERM');
  for (const dir of [srv, data]) fs.rmSync(dir, { recursive: true, force: true });
});

const syncButton = () => page.locator('#toolbar [data-button="sync"]');
const syncChanged = async () => (await syncButton().getAttribute('class')).includes('tone-changed');
async function expectSyncChanged(changed) {
  await page.waitForFunction((want) => {
    const b = document.querySelector('#toolbar [data-button="sync"]');
    return b && b.classList.contains('tone-changed') === want;
  }, changed);
}

async function login(user, password) {
  await syncButton().click();
  await expectAlert(page, 'Login');
  const box = page.locator('#alerts .dialog').last();
  await box.locator('input').nth(0).fill(user);
  await box.locator('input').nth(1).fill(password);
  return box;
}

// The direction question, answered; the screen shows what it does and what it moved, and the
// server's message follows on the deck list.
async function fullSync(button, screenshotName, progressShot) {
  const sheet = page.locator('#alerts .dialog.sheet');
  await sheet.waitFor();
  await sheet.filter({ hasText: "can't be merged together" }).waitFor();
  assert.equal(await page.locator('#title').innerText(), 'Synchronize');
  assert.equal(await page.locator('#nav-left .back').count(), 0);  // no way out but the sheet
  if (screenshotName) await screenshots(page, screenshotName);
  await sheet.getByRole('button', { name: button, exact: true }).click();
  // The whole collection went one way: at least some kilobytes, shown until the dismissal.
  const way = button.startsWith('Upload') ? 'up' : 'down';
  await page.locator(`.progress-amounts .${way} dd`).filter({ hasText: /^([1-9]\d* kB|\d+\.\d\d MB)$/ }).waitFor();
  if (progressShot) {
    fs.mkdirSync(ARTIFACTS, { recursive: true });
    await page.screenshot({ path: path.join(ARTIFACTS, progressShot + '.png') });
  }
  await expectAlert(page, null, MESSAGE);
  assert.equal(await page.locator('#title').innerText(), 'Decks');
  await answer(page, 'OK');
}

test('a wrong password is refused, a right one syncs at once after the direction question', async () => {
  assert.equal(await syncChanged(), false);  // not logged in
  const box = await login('ann', 'wrong');
  await screenshots(page, 'sync-login');
  await box.getByRole('button', { name: 'Login', exact: true }).click();
  await expectAlert(page, null, 'Incorrect username or password. Please try again.');
  await answer(page, 'OK');
  await noSpinner(page);

  const empty = await login('ann', '');
  await empty.getByRole('button', { name: 'Login', exact: true }).click();
  await expectAlert(page, 'Invalid login', 'Both username and password are required.');
  await answer(page, 'OK');

  const right = await login('ann', 'secret');
  await right.getByRole('button', { name: 'Login', exact: true }).click();
  // A new account's collection can't be merged with this one.
  await page.locator('.progress-panel').waitFor();
  await fullSync('Upload to RivoWeb', 'sync-direction', 'sync-progress-desktop');
  await expectSyncChanged(false);
});

test('the sync button turns yellow on a local change and back after a sync', async () => {
  await page.getByRole('button', { name: 'Add/Export' }).click();
  await page.locator('#alerts .dialog.sheet').getByRole('button', { name: 'Add Empty Deck' }).click();
  await expectAlert(page, 'Create Empty Deck');
  await answer(page, 'Create', 'Synced deck');
  await row(page, 'Synced deck').waitFor();
  await page.getByRole('button', { name: 'Refresh' }).click();
  await expectSyncChanged(true);
  await screenshots(page, 'sync-button-changed');

  await page.keyboard.press('s');
  await expectAlert(page, null, MESSAGE);
  await answer(page, 'OK');
  await expectSyncChanged(false);
});

test('a collection replaced on the server turns the button yellow; a download brings it', async () => {
  const other = tempDir();
  const env = { ...process.env, RIVO_PASSWORD: 'secret' };
  const run = (args) => spawnSync(RIVO, ['--data', other, ...args], { env, encoding: 'utf8', timeout: 30000 });
  let r = run(['sync', '--user', 'ann', '--full', 'download']);
  assert.equal(r.status, 0, r.stderr);
  r = run(['sync', '--full', 'upload']);  // a new schema stamp: the server's file is another one now
  assert.equal(r.status, 0, r.stderr);
  fs.rmSync(other, { recursive: true, force: true });

  await page.getByRole('button', { name: 'Refresh' }).click();
  await expectSyncChanged(true);
  await page.setViewportSize({ width: 390, height: 844 });
  await syncButton().click();
  await fullSync('Download from RivoWeb', null, 'sync-progress-phone');
  await page.setViewportSize({ width: 1280, height: 800 });
  await row(page, 'Synced deck').waitFor();  // it went up before, and came back down
  await expectSyncChanged(false);
  assert.deepEqual(page.errors, []);
});

// Last: it leaves the profile logged out.
test('the settings: Force Full Sync makes the next sync ask the direction, Log Out the login', async () => {
  const settingsRow = (text) => page.locator('#content .row').filter({ has: page.locator('.row-title', { hasText: new RegExp(`^${text}$`) }) });
  const openSyncing = async () => {
    await page.getByRole('button', { name: 'Settings' }).click();
    await settingsRow('Syncing').click();
    await page.locator('#title').filter({ hasText: /^Syncing$/ }).waitFor();
  };
  await openSyncing();
  await settingsRow('Log Out').filter({ hasText: 'Deauth ann' }).waitFor();
  await settingsRow('Force Full Sync').click();
  await expectAlert(page, 'Full Sync', 'Force a one way sync? All changes on one side will be lost.');
  await answer(page, 'Yes');
  await expectAlert(page, null, "Tap synchronize when you're ready to proceed.");
  assert.equal(await page.locator('#title').innerText(), 'Decks');
  await answer(page, 'OK');
  await syncButton().click();
  const sheet = page.locator('#alerts .dialog.sheet');
  await sheet.filter({ hasText: "can't be merged together" }).waitFor();
  await sheet.getByRole('button', { name: 'Upload to RivoWeb', exact: true }).click();
  await alertBox(page).locator('p').filter({ hasText: MESSAGE }).waitFor({ timeout: 120000 });
  await answer(page, 'OK');
  await page.locator('#title').filter({ hasText: /^Decks$/ }).waitFor();
  await noSpinner(page);

  await openSyncing();
  await settingsRow('Log Out').click();
  await page.locator('#popup:not([hidden]) .popup-text').filter({ hasText: 'Deauthorized.' }).waitFor();
  await noSpinner(page);
  await page.locator('#nav-left .back').click();
  await page.locator('#nav-left .back').click();
  await page.locator('#title').filter({ hasText: /^Decks$/ }).waitFor();
  await expectSyncChanged(false);  // plain: no account to be out of step with
  await syncButton().click();
  await expectAlert(page, 'Login');
  assert.deepEqual(page.errors, []);
});
