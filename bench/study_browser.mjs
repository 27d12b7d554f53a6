// The review screen in the browser on the heavy generated collection: from the answer key's
// press to the next question shown (its content in the card frame, one frame painted), median
// and 90th percentile over 200 cards. The bare twin puts the same questions' HTML into the
// same frame, with no program behind it: the browser's own share of the figure.
//
//   node bench/study_browser.mjs [--cards 200]   (after `make build`)
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { answer, browser, noSpinner, open, row, rowIds, serve, tempDir, RIVO_GEN } from '../tests/e2e/rivo.mjs';

const argAt = process.argv.indexOf('--cards');
const CARDS = argAt > 0 ? Number(process.argv[argAt + 1]) : 200;
const WARMUP = 5;

const data = tempDir('rivo-bench-');
execFileSync(RIVO_GEN, ['--data', data], { stdio: 'ignore' });
// A day's limits large enough that one deck holds the run.
execFileSync('sqlite3', [path.join(data, 'profiles/User 1/collection.rivo2'),
  `update col set dconf = json_set(dconf, '$."1".new.perDay', 1000, '$."1".rev.perDay', 1000)`]);

const rivo = await serve(data);
const chrome = await browser();
const cardFrame = (page) => page.frames().find((f) => f.url().includes('?page='));

// In the page and in the frame: when a key went down; in the frame: when the card's content
// changed and the frame after it was painted.
const probe = () => {
  const now = () => performance.timeOrigin + performance.now();
  window.__down = 0;
  window.addEventListener('keydown', () => { window.__down = now(); }, true);
  const qa = document.getElementById('qa');
  if (!qa) return;
  window.__shown = 0;
  window.__html = '';
  window.__armed = false;
  new MutationObserver(() => {
    if (!window.__armed) return;
    window.__armed = false;
    const html = qa.innerHTML;
    window.__set = now();
    requestAnimationFrame(() => setTimeout(() => { window.__shown = now(); window.__html = html; }, 0));
  }).observe(qa, { childList: true, subtree: true, characterData: true });
};

function stats(list) {
  const s = [...list].sort((a, b) => a - b);
  const at = (q) => s[Math.min(s.length - 1, Math.floor(q * s.length))];
  return { median: at(0.5), p90: at(0.9), n: s.length };
}

try {
  const page = await open(chrome.context, rivo.url);
  await answer(page, 'OK');
  await noSpinner(page);
  const deck = (await rowIds(page))[0];
  await row(page, deck).click();
  await page.locator('#content .web-screen .status:not([hidden])').waitFor();
  let frame;
  while (!(frame = cardFrame(page))) await page.waitForTimeout(20);
  await frame.locator('#qa').filter({ hasText: /\S/ }).waitFor();
  await page.evaluate(probe);
  await frame.evaluate(probe);

  const times = [];
  const setTimes = [];
  const questions = [];
  for (let i = 0; i < CARDS + WARMUP; i++) {
    await page.keyboard.press(' ');
    await page.locator('#toolbar .answer').first().waitFor({ timeout: 10000 });
    // Armed once the answer's own changes have been painted.
    await frame.evaluate(() => new Promise((done) => requestAnimationFrame(() => setTimeout(() => {
      window.__down = 0;
      window.__shown = 0;
      window.__armed = true;
      done();
    }, 0))));
    await page.evaluate(() => { window.__down = 0; });
    await page.keyboard.press('3');
    const shown = await frame.waitForFunction(() => window.__shown && window.__html).then(() =>
      frame.evaluate(() => ({ shown: window.__shown, set: window.__set, down: window.__down, html: window.__html })));
    const down = shown.down || await page.evaluate(() => window.__down);
    if (shown.html.includes('Congratulations')) throw new Error(`the deck ran out after ${i} cards`);
    // Wait for the answer buttons to go, so that the next space is the question's.
    await page.waitForFunction(() => !document.querySelector('#toolbar .answer'));
    if (i >= WARMUP) {
      times.push(shown.shown - down);
      setTimes.push(shown.set - down);
      questions.push(shown.html);
    }
  }

  // The bare twin: the same questions put into the frame by a script of its own.
  const bare = await frame.evaluate(async (list) => {
    const qa = document.getElementById('qa');
    const out = [];
    for (const html of list) {
      const start = performance.now();
      qa.innerHTML = html;
      window.scrollTo(0, 0);
      await new Promise((done) => requestAnimationFrame(() => setTimeout(done, 0)));
      out.push(performance.now() - start);
    }
    return out;
  }, questions);

  const full = stats(times);
  const set = stats(setTimes);
  const twin = stats(bare);
  const fmt = (x) => x.toFixed(1);
  console.log(`answer key to next question shown, ${full.n} cards of deck "${deck}":`);
  console.log(`  program + browser: median ${fmt(full.median)} ms, p90 ${fmt(full.p90)} ms`);
  console.log(`  (of which to the content set in the frame: median ${fmt(set.median)} ms, p90 ${fmt(set.p90)} ms)`);
  console.log(`  bare twin (same HTML into the frame): median ${fmt(twin.median)} ms, p90 ${fmt(twin.p90)} ms`);
  console.log(`  ratio of medians: ${fmt(full.median / twin.median)}, of p90: ${fmt(full.p90 / twin.p90)}`);
  await page.close();
} finally {
  await chrome.close();
  await rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
}
