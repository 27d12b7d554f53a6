// The statistics screen on a large generated collection: every chart draws, with no script
// error, for the deck and the whole collection; and card info from the review screen.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { spawnSync } from 'node:child_process';
import { launched, noSpinner, RIVO_GEN, screenshots, tempDir } from './rivo.mjs';

let data;
let app;
const consoleErrors = [];
before(async () => {
  data = tempDir();
  // Heavy enough for every chart (hours with more than 30 answers), quick to make.
  const r = spawnSync(RIVO_GEN, ['--data', data, '--notes', '20000', '--cards', '40000', '--decks', '20',
    '--revlog', '200000'], { encoding: 'utf8' });
  assert.equal(r.status, 0, r.stderr);
  app = await launched(data);
  app.page.on('console', (m) => { if (m.type() === 'error') consoleErrors.push(m.text()); });
});
after(async () => {
  await app.chrome.close();
  await app.rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
});

const statsFrame = (page) => page.frames().find((f) => f.url().includes('?page='));

// The ids of the chart boxes and how many pixels each canvas has drawn, once the page is in.
async function charts(page) {
  for (let i = 0; i < 200; i++) {
    const frame = statsFrame(page);
    try {
      const drawn = frame && await frame.evaluate(() => {
        const boxes = document.querySelectorAll('div.middle');
        if (document.readyState !== 'complete' || !boxes.length) return null;
        if ([...boxes].some((d) => !d.querySelector('canvas.flot-base'))) return null;
        return [...document.querySelectorAll('div.middle')].map((d) => {
          const c = d.querySelector('canvas.flot-base');
          if (!c) return [d.id, 0];
          const px = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
          let n = 0;
          for (let k = 3; k < px.length; k += 4) if (px[k]) n++;
          return [d.id, n];
        });
      });
      if (drawn && drawn.length) return Object.fromEntries(drawn);
    } catch { /* a frame being replaced */ }
    await page.waitForTimeout(50);
  }
  throw new Error('the statistics page never drew');
}

async function choose(page, title) {
  const before = statsFrame(page)?.url();
  await page.locator('#content .controls .segment', { hasText: title }).click();
  await noSpinner(page);
  await page.waitForFunction((u) => [...document.querySelectorAll('iframe.web-view')].some((f) => f.src !== u), before);
}

test('the statistics screen draws every chart for the deck and the whole collection', async () => {
  const { page } = app;
  await page.getByRole('button', { name: 'Statistics' }).click();
  await noSpinner(page);
  // The current deck of a generated collection is the empty default deck: the charts that
  // always show are there, with nothing in them.
  const deck = await charts(page);
  assert.deepEqual(Object.keys(deck).sort(), ['cards', 'due', 'ease']);
  assert.match(await page.locator('#title').textContent(), /\S/);
  await choose(page, 'All');
  await choose(page, '1 Year');
  assert.equal(await page.locator('#title').textContent(), 'Collection');
  const all = await charts(page);
  assert.deepEqual(Object.keys(all).sort(), ['cards', 'due', 'ease', 'hour', 'ivl', 'reps', 'time']);
  for (const [id, pixels] of Object.entries(all)) assert.ok(pixels > 500, `${id} drew ${pixels} pixels`);
  assert.deepEqual(await page.locator('.segment.selected').allTextContents(), ['All', '1 Year']);
  await screenshots(page, 'stats');
  // Left and opened again (by its key), the screen starts on "Deck" and "1 Month".
  await page.keyboard.press('Escape');
  await page.locator('#content .row').first().waitFor();
  await noSpinner(page);
  await page.keyboard.press('t');
  await page.locator('#content .controls').waitFor();
  await noSpinner(page);
  await charts(page);
  assert.deepEqual(await page.locator('.segment.selected').allTextContents(), ['Deck', '1 Month']);
  assert.deepEqual(page.errors, []);
  assert.deepEqual(consoleErrors, []);
  await page.keyboard.press('Escape');
});

test('card info opens from the review screen', async () => {
  const { page } = app;
  await page.locator('#content .row').first().click();
  await page.locator('#content .web-screen .status:not([hidden])').waitFor();
  await page.getByRole('button', { name: 'Tools' }).click();
  await page.locator('#content .row[data-id="button4"]').click();
  await page.locator('#title', { hasText: 'Card Info' }).waitFor();
  let text = '';
  for (let i = 0; i < 100 && !text.includes('Card Type'); i++) {
    try { text = await statsFrame(page).evaluate(() => document.body.innerText); } catch { /* loading */ }
    await page.waitForTimeout(50);
  }
  assert.match(text, /Added\s+\d{4}-\d{1,2}-\d{1,2}/);
  assert.match(text, /Note Type\s+\S/);
  await screenshots(page, 'card-info');
  assert.deepEqual(page.errors, []);
});
