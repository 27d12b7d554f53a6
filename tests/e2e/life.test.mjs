// The spinner freezing the page, and what must never crash Rivo or leave it frozen: a browser
// going away during a job, two tabs answering one alert, a double click, a stale event. Then
// one program per data folder.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { alertBox, answer, browser, expectAlert, noSpinner, open, row, rivoSync, serve, tempDir } from './rivo.mjs';

let data, rivo, chrome;

before(async () => {
  data = tempDir();
  // Every job waits under its spinner: long enough to act while it's up.
  rivo = await serve(data, ['--job-delay', '0.8']);
  chrome = await browser();
});

after(async () => {
  await chrome.close();
  await rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
});

test('the spinner freezes the page during a job', async () => {
  const page = await open(chrome.context, rivo.url);
  await noSpinner(page);
  await answer(page, 'OK');  // the welcome
  await page.getByRole('button', { name: 'Refresh' }).click();
  const popup = page.locator('#popup');
  await popup.filter({ hasText: 'Checking...' }).waitFor();
  assert.ok(await page.locator('#app').evaluate((app) => app.inert));
  // Neither a click nor a key gets through; once it's gone, the page answers again.
  await row(page, 'Default').click({ force: true, timeout: 1000 }).catch(() => {});
  await page.keyboard.press('Enter');
  await noSpinner(page);
  assert.equal(await page.locator('#title').innerText(), 'Decks');
  await row(page, 'Default').click();
  await page.locator('#content .web-screen').waitFor();  // studying it
  await page.getByRole('button', { name: 'Decks' }).click();
  await noSpinner(page);
  await page.close();
});

test('a browser that goes away in the middle of a job leaves nothing frozen', async () => {
  let page = await open(chrome.context, rivo.url);
  await page.getByRole('button', { name: 'Refresh' }).click();
  await page.locator('#popup').filter({ hasText: 'Checking...' }).waitFor();
  await page.close();
  page = await open(chrome.context, rivo.url);
  await noSpinner(page);
  await row(page, 'Default').click();
  await page.locator('#content .web-screen').waitFor();  // studying it
  // A key that lands while the card's own first event is in flight may be dropped: press again.
  const decks = page.locator('#title').filter({ hasText: 'Decks' });
  for (let i = 0; i < 20 && !(await decks.count()); i++) {
    await page.keyboard.press('Escape');
    await decks.waitFor({ timeout: 500 }).catch(() => {});
  }
  await decks.waitFor();
  await noSpinner(page);
  await page.close();
});

test('two tabs show one alert, answered once; double clicks and stale events do nothing', async () => {
  const a = await open(chrome.context, rivo.url);
  const b = await open(chrome.context, rivo.url);
  await noSpinner(a);
  await row(a, 'Default').click({ button: 'right' });
  await expectAlert(a, 'Rename Deck');
  await expectAlert(b, 'Rename Deck');
  await answer(a, 'Cancel');
  await alertBox(b).waitFor({ state: 'detached' });

  // A double click opens one sheet, not two.
  await a.getByRole('button', { name: 'Add/Export' }).dblclick();
  await a.locator('.sheet-title').waitFor();
  await a.waitForTimeout(300);
  assert.equal(await a.locator('#alerts .scrim').count(), 1);
  await answer(a, 'Cancel');

  // An event for a screen that is gone is refused and changes nothing.
  const status = await a.evaluate(async () => (await fetch('/event', {
    method: 'POST', headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ screen: 999999, element: 'title' }),
  })).status);
  assert.equal(status, 409);
  await row(a, 'Default').click();
  await a.locator('#content .web-screen').waitFor();  // studying it
  await b.locator('#content .web-screen').waitFor();  // studying it
  await b.getByRole('button', { name: 'Decks' }).click();
  await noSpinner(a);
  await a.close();
  await b.close();
});

test('one program per data folder: a second start shows the first, commands refuse', async () => {
  const collection = `${data}/profiles/User 1/collection.rivo2`;
  const before = fs.statSync(collection).mtimeMs;
  const second = rivoSync(['--data', data, 'serve', '--no-browser']);
  assert.equal(second.status, 0, second.err);
  assert.match(second.out, new RegExp(`already running.*${rivo.origin.replace(/\./g, '\\.')}`));
  const check = rivoSync(['--data', data, 'check']);
  assert.equal(check.status, 1);
  assert.match(check.err, /^rivo: Rivo is already running on .* \(at http:\/\/127\.0\.0\.1:\d+\/\); close it first\.\n$/);
  assert.ok(!check.err.includes('?k='));
  assert.equal(fs.statSync(collection).mtimeMs, before);
});
