// The review screen as a user meets it: studying a generated deck with keys, clicks and taps
// (and the same answers replayed by the command line give the same rows), undo, the finished
// message's links, typed answers, sound, the scratchpad, and cards that misbehave.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { RIVO, addBasicNotes, generate, noSpinner, perTestServers, row, rowIds, screenshots, sqlOn as sql } from './rivo.mjs';

const servers = perTestServers();

// A fresh data folder with these notes; the program and a page on it, at the deck list.
async function start(notes, { prefs = {}, prepare } = {}) {
  const data = servers.init(prefs);
  if (notes) addBasicNotes(data, notes);
  if (prepare) prepare(data);
  return servers.start(data);
}

// The card frame, as it is now (a frame that hung is replaced).
const cardFrame = (page) => page.frames().find((f) => f.url().includes('?page='));
async function cardShows(page, text) {
  await page.waitForFunction(() => true);
  for (let i = 0; i < 100; i++) {
    const frame = cardFrame(page);
    try {
      if (frame && await frame.evaluate((t) => { const qa = document.getElementById('qa'); return !!qa && qa.innerHTML.includes(t); }, text)) return frame;
    } catch { /* a frame being replaced */ }
    await page.waitForTimeout(50);
  }
  throw new Error('the card never showed ' + text);
}
const answerButtons = (page) => page.locator('#toolbar .answer');
async function openDeck(page, name) {
  await row(page, name).click();
  await page.locator('#content .web-screen .status:not([hidden])').waitFor();
}
// Clicks a tap zone of the card frame; the frame ignores taps for a moment after new content.
async function tapZone(page, zone) {
  await page.waitForTimeout(300);
  const box = await page.locator('iframe.web-view').boundingBox();
  const col = { Left: 1 / 6, Center: 1 / 2, Right: 5 / 6 }[zone.match(/Left|Center|Right/)[0]];
  const rowAt = { top: 1 / 6, mid: 1 / 2, bottom: 5 / 6 }[zone.match(/^(top|mid|bottom)/)[0]];
  await page.mouse.click(box.x + box.width * col, box.y + box.height * rowAt);
}
const popupText = (page) => page.locator('#popup:not([hidden]) .popup-text');

test('a generated deck studied with keys, clicks and taps gives the scheduler\'s rows', async () => {
  const data = servers.folder();
  generate(data, { notes: 600, decks: 4 });
  const twin = servers.folder();
  fs.cpSync(data, twin, { recursive: true });
  const startId = sql(data, 'select max(id) from revlog');
  const { page, stop } = await servers.start(data, { welcome: true });
  const deck = (await rowIds(page))[0];
  await openDeck(page, deck);

  const actions = [];  // what the command line replays: eases, and 'u' for undo
  for (let i = 0; i < 12; i++) {
    await page.waitForFunction(() => !document.querySelector('#toolbar .answer'));
    const mode = i % 3;
    if (mode === 0) await page.keyboard.press(' ');
    else await tapZone(page, mode === 1 ? 'midCenter' : 'topLeft');
    await answerButtons(page).first().waitFor();
    const buttons = await answerButtons(page).count();
    if (i === 1) await screenshots(page, 'study-answer');
    let ease;
    if (mode === 0) {
      // Space answers with the default button; "1" with Again.
      ease = i % 2 ? 1 : buttons === 4 ? 3 : 2;
      await page.keyboard.press(ease === 1 ? '1' : ' ');
    } else if (mode === 1) {
      ease = buttons;  // the last button: Easy
      await answerButtons(page).last().click();
    } else {
      // The right column answers Good, the left one Again.
      ease = i % 2 ? (buttons === 4 ? 3 : 2) : 1;
      await tapZone(page, ease === 1 ? 'bottomLeft' : 'bottomRight');
    }
    actions.push(String(ease));
    await page.waitForFunction(() => document.querySelector('#content .status') && !document.querySelector('#toolbar .answer'));
    if (i === 6) {
      // Undo from the Tools screen puts the card back.
      const answered = await cardFrame(page).evaluate(() => document.getElementById('qa').innerHTML);
      await page.getByRole('button', { name: 'Tools' }).click();
      await page.locator('#content .row[data-id="button3"]').click();
      await popupText(page).filter({ hasText: 'Review undone' }).waitFor();
      await noSpinner(page);
      actions.push('u');
      assert.ok(answered !== await (await cardShows(page, '')).evaluate(() => document.getElementById('qa').innerHTML));
    }
  }
  // A key pressed before the reply to the one before is back waits for it: not lost.
  await page.keyboard.press(' ');
  await answerButtons(page).first().waitFor();
  const good = (await answerButtons(page).count()) === 4 ? '3' : '2';
  await page.keyboard.press(good);
  await page.keyboard.press(' ');
  actions.push(good);
  await page.waitForTimeout(1000);  // the answer is in; its buttons are gone unless space came
  await answerButtons(page).first().waitFor({ timeout: 5000 });
  assert.deepEqual(page.errors, []);
  await stop();
  // The collection is the program's while it runs; read once it has stopped.
  const eases = sql(data, `select ease from revlog where id > ${startId} order by id`).split('\n');
  assert.deepEqual(eases, actions.filter((a, i) => a !== 'u' && actions[i + 1] !== 'u'));

  // The same answers through the command line on the twin collection.
  const input = actions.map((a) => (a === 'u' ? 'u' : ' ' + a)).join('') + 'q';
  execFileSync(RIVO, ['--data', twin, 'study', '--deck', deck], { input, encoding: 'utf8' });
  const revlog = `select cid, ease, type, lastIvl, factor from revlog where id > ${startId} order by id`;
  assert.deepEqual(sql(data, revlog), sql(twin, revlog));
  const cids = `(select cid from revlog where id > ${startId})`;
  const cards = `select id, queue, type, reps, lapses, left, factor from cards where id in ${cids} order by id`;
  assert.deepEqual(sql(data, cards), sql(twin, cards));
});

test('the finished message, its links, and the screenshots of a study', async () => {
  const s = await start([['What is the capital of France?', 'Paris'], ['Largest ocean?', 'The Pacific']]);
  const { page } = s;
  await openDeck(s.page, 'Default');
  await cardShows(page, 'capital of France');
  await screenshots(page, 'study-question');
  // Bury the first from the Tools screen, answer the second: the deck is done.
  await page.getByRole('button', { name: 'Tools' }).click();
  await page.locator('#content .row').first().waitFor();
  await screenshots(page, 'study-tools');
  await page.locator('#content .row[data-id="button5"]').click();
  await popupText(page).filter({ hasText: 'Note buried' }).waitFor();
  await noSpinner(page);  // the popup holds the keys while it shows
  await cardShows(page, 'Largest ocean');
  await page.keyboard.press(' ');
  await answerButtons(page).last().click();
  const frame = await cardShows(page, 'Congratulations');
  await screenshots(page, 'study-finished');
  await frame.locator('a[href="_unbury"]').click();
  await cardShows(page, 'capital of France');
  // The Custom Study link opens its screen.
  await page.keyboard.press(' ');
  await answerButtons(page).last().click();
  await (await cardShows(page, 'Congratulations')).locator('a[href="_cstudy"]').click();
  await page.locator('#title').filter({ hasText: /^Custom Study$/ }).waitFor();
  assert.deepEqual(page.errors, []);
  await s.stop();
});

test('typed answers show their diff; a sound plays; the scratchpad draws and clears', async () => {
  // A short sound: 0.2 s of a 440 Hz tone, as 8-bit PCM.
  const rate = 8000, samples = 1600;
  const wav = Buffer.alloc(44 + samples);
  wav.write('RIFF', 0); wav.writeUInt32LE(36 + samples, 4); wav.write('WAVEfmt ', 8);
  wav.writeUInt32LE(16, 16); wav.writeUInt16LE(1, 20); wav.writeUInt16LE(1, 22);
  wav.writeUInt32LE(rate, 24); wav.writeUInt32LE(rate, 28); wav.writeUInt16LE(1, 32); wav.writeUInt16LE(8, 34);
  wav.write('data', 36); wav.writeUInt32LE(samples, 40);
  for (let i = 0; i < samples; i++) wav[44 + i] = 128 + Math.round(60 * Math.sin((2 * Math.PI * 440 * i) / rate));
  const s = await start([['Capital of Italy', 'Rome'], ['Listen [sound:beep one.wav]', 'a beep'], ['Draw a circle', 'o'], ['Then a square', 's']], {
    prefs: { button9: 'toggleScratchPad' },
    prepare: (data) => {
      const mid = sql(data, "select key from json_each((select models from col)) where json_extract(value, '$.name') = 'Basic'");
      sql(data, `update col set models = json_set(models, '$."${mid}".tmpls[0].qfmt', '{{Front}}<br>{{type:Back}}',
        '$."${mid}".tmpls[0].afmt', '{{FrontSide}}<hr id=answer>{{Back}}')`);
      fs.writeFileSync(path.join(data, 'profiles/User 1/media/beep one.wav'), wav);
    },
  });
  const { page } = s;
  await openDeck(page, 'Default');
  await cardShows(page, 'Capital of Italy');
  const field = page.locator('.type-row input');
  await field.waitFor();
  await page.waitForTimeout(600);  // the field ignores a return in its first half second
  await field.fill('Roma');
  await field.press('Enter');
  const frame = await cardShows(page, 'rightanswer');
  const diff = await frame.evaluate(() => [...document.querySelectorAll('#qa span[style]')].map((e) => [e.textContent, e.getAttribute('style')]));
  const green = 'background: #00FF00; color: #000;', red = 'background: #FF0000; color: #000;';
  // "Rom" matches, the "e" was missed, the "a" is too much.
  assert.deepEqual(diff.slice(1, 4), [['Rom', green], ['-', red], ['a', red]]);
  await screenshots(page, 'study-typed');
  await answerButtons(page).last().click();

  // The sound of the next question plays in the page's audio element.
  await cardShows(page, 'Listen');
  await page.waitForFunction(() => {
    const a = document.getElementById('audio-player');
    return a && a.src.includes('beep%20one%2Ewav') && (a.ended || a.currentTime > 0);
  }, null, { timeout: 5000 });
  await page.locator('.type-row input').fill('a beep');
  await page.waitForTimeout(600);
  await page.locator('.type-row input').press('Enter');
  await answerButtons(page).last().click();

  // The scratchpad: shown for the template, drawn on, and empty again for the next card.
  await cardShows(page, 'Draw a circle');
  await page.getByRole('button', { name: 'Tools' }).click();
  await page.locator('#content .row[data-id="button9"]').click();
  const canvas = page.locator('.pad-host canvas');
  await canvas.waitFor();
  // Back from Tools the card shows afresh, on a clean pad.
  await cardShows(page, 'Draw a circle');
  await page.waitForTimeout(300);
  const box = await canvas.boundingBox();
  await page.mouse.move(box.x + 40, box.y + 40);
  await page.mouse.down();
  for (let i = 1; i <= 10; i++) await page.mouse.move(box.x + 40 + i * 15, box.y + 40 + i * 6);
  await page.mouse.up();
  const ink = () => canvas.evaluate((c) => {
    const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
    let n = 0;
    for (let i = 0; i < d.length; i += 4) if (d[i] < 60) n++;
    return n;
  });
  assert.ok(await ink() > 50, 'the stroke is drawn');
  await page.locator('.type-row input').fill('o');
  await page.locator('.type-row input').press('Enter');
  await answerButtons(page).last().click();
  await page.waitForFunction(() => !document.querySelector('#toolbar .answer'));
  await page.waitForTimeout(200);
  assert.equal(await ink(), 0, 'cleared for the next card');
  assert.deepEqual(page.errors, []);
  await s.stop();
});

test('cards that misbehave never break the page or the loop', async () => {
  const big = '<svg xmlns="http://www.w3.org/2000/svg" width="12000" height="9000"><rect width="12000" height="9000" fill="#8ac"/></svg>';
  const s = await start([
    ['Broken <div><b>tags <i>here', 'x'],
    ['Throws <script>throw new Error("boom")</script><span id=after>still here</span>', 'x'],
    ['Probe <div id=probe>waiting</div><script>(async () => { const out = []; for (const [url, opts] of [["/event", { method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify({ screen: 1, element: "back" }) }], ["/", {}], ["/events", {}]]) { try { const r = await fetch(url, opts); out.push(r.status); } catch (e) { out.push("refused"); } } try { out.push(parent.document.cookie); } catch (e) { out.push("no parent"); } document.getElementById("probe").textContent = out.join(","); })()</script>', 'x'],
    ['Huge <img src="huge.svg"> and missing <img src="missing.png"> [sound:missing.mp3]', 'x'],
    ['Leaves <script>setTimeout(() => { location.href = "http://127.0.0.1:9/away"; }, 50)</script>', 'x'],
    ['Loops <script>setTimeout(() => { for (;;) {} }, 50)</script>', 'x'],
    ['The end of the misbehaving cards', 'x'],
  ], { prepare: (data) => fs.writeFileSync(path.join(data, 'profiles/User 1/media/huge.svg'), big) });
  const { page } = s;
  await openDeck(page, 'Default');
  const next = async () => {
    await page.keyboard.press(' ');
    await answerButtons(page).last().click();
  };
  await cardShows(page, 'Broken');
  await next();
  const thrown = await cardShows(page, 'Throws');
  assert.equal(await thrown.locator('#after').textContent(), 'still here');
  await next();
  const probe = await cardShows(page, 'Probe');
  await probe.locator('#probe').filter({ hasText: /,/ }).waitFor();
  assert.equal(await probe.locator('#probe').textContent(), 'refused,refused,refused,no parent');
  assert.equal(await page.locator('#nav-left .back').count(), 1, 'still studying');
  await next();
  const huge = await cardShows(page, 'Huge');
  const width = await huge.evaluate(() => [document.querySelector('#qa img').getBoundingClientRect().width, innerWidth]);
  assert.ok(width[0] <= width[1], 'a huge picture fits the card');
  assert.equal(await huge.locator('img.playImage').count(), 1);
  await next();
  await cardShows(page, 'Leaves');
  await page.waitForTimeout(800);
  assert.ok(cardFrame(page).url().includes('?page='), 'the frame was put back');
  await cardShows(page, 'Leaves');
  await next();
  await cardShows(page, 'Loops');
  // Stuck: the page stays usable, and the card comes back without its scripts.
  await page.waitForTimeout(4500);
  await cardShows(page, 'Loops');
  await next();
  await cardShows(page, 'The end of the misbehaving');
  assert.deepEqual(page.errors.filter((e) => e !== 'boom'), [], 'only the card\'s own error');
  await s.rivo.stop();
  assert.equal(sql(s.data, 'select count() from revlog'), '6');
  await s.stop();
});
