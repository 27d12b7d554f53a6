// The deck list on a generated collection: the tree with its counts, expanding and collapsing
// (kept across a reload), renaming, adding and deleting decks with each refusal.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { alertBox, answer, expectAlert, generate, launched, noSpinner, row, rowIds, screenshots, tempDir } from './rivo.mjs';

let data, rivo, chrome, page;

before(async () => {
  data = tempDir();
  generate(data, { notes: 2000, decks: 30 });
  ({ rivo, chrome, page } = await launched(data));
});

after(async () => {
  await chrome.close();
  await rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
});

test('the tree opens and closes, and stays so after a reload', async () => {
  const top = await rowIds(page);
  assert.ok(top.length >= 3, top.join());
  assert.ok(top.every((id) => !id.includes('::')));
  const first = top[0];
  const counts = await row(page, first).locator('.count').allInnerTexts();
  assert.equal(counts.length, 2);
  assert.ok(counts.every((c) => /^(\d{1,3}|1000\+)$/.test(c)), counts.join());

  await row(page, first).locator('.toggle').click();
  await row(page, `${first}::Unit 1`).waitFor();
  // Keyboard: arrows move, Right opens a branch.
  await row(page, `${first}::Unit 1`).focus();
  const child = `${first}::Unit 1`;
  if (await row(page, child).locator('.toggle').count()) {
    await page.keyboard.press('ArrowRight');
    await page.locator(`#content .row[data-id^="${child}::"]`).first().waitFor();
  }
  const open = await rowIds(page);
  await screenshots(page, 'decks');
  await page.reload();
  await noSpinner(page);
  await row(page, child).waitFor();
  assert.deepEqual(await rowIds(page), open);

  await row(page, first).locator('.toggle').click();
  await page.waitForFunction((c) => !document.querySelector(`#content .row[data-id="${c}"]`), child);
  assert.deepEqual(await rowIds(page), top);
});

async function renameTo(id, name) {
  await row(page, id).click({ button: 'right' });
  await expectAlert(page, 'Rename Deck', 'Enter new deck name:');
  await answer(page, 'Rename', name);
}

async function addDeck(name) {
  await page.getByRole('button', { name: 'Add/Export' }).click();
  await page.locator('.sheet-title').filter({ hasText: 'Add/Export' }).waitFor();
  await answer(page, 'Add Empty Deck');
  await expectAlert(page, 'Create Empty Deck', 'Enter deck name:');
  await answer(page, 'Create', name);
}

test('decks are renamed, added and deleted, with each refusal', async () => {
  const [first, second] = await rowIds(page);
  for (const [name, title, text] of [['', 'Need Deck Name', 'Cannot rename a deck without a name.'],
    [second, 'Deck Exists', 'A deck with that name already exists.'],
    ['A::', null, 'Invalid deck name.']]) {
    await renameTo(first, name);
    await expectAlert(page, title, text);
    await answer(page, 'OK');
  }
  await renameTo(first, 'Zoology');
  await row(page, 'Zoology').waitFor();
  await noSpinner(page);

  for (const [name, title, text] of [['', 'Need Deck Name', 'Cannot create a deck without a name.'],
    ['Zoology', 'Deck Exists', 'A deck with that name already exists.']]) {
    await addDeck(name);
    await expectAlert(page, title, text);
    await answer(page, 'OK');
  }
  await addDeck('Aardvarks');
  await row(page, 'Aardvarks').waitFor();
  await noSpinner(page);

  // Delete asks first; No keeps the deck.
  await row(page, 'Aardvarks').hover();
  await row(page, 'Aardvarks').locator('.delete').click();
  await expectAlert(page, 'Confirm', 'Are you sure you wish to delete this deck?');
  await answer(page, 'No');
  await alertBox(page).waitFor({ state: 'detached' });
  await row(page, 'Aardvarks').focus();
  await page.keyboard.press('Delete');
  await answer(page, 'Yes');
  await page.waitForFunction(() => !document.querySelector('#content .row[data-id="Aardvarks"]'));
  await noSpinner(page);
  assert.deepEqual(page.errors, []);
});

test('on a phone, a long press renames and a swipe shows delete', async () => {
  await page.setViewportSize({ width: 390, height: 844 });
  const cdp = await chrome.context.newCDPSession(page);
  await cdp.send('Emulation.setTouchEmulationEnabled', { enabled: true, maxTouchPoints: 1 });
  const [id] = await rowIds(page);
  const box = await row(page, id).boundingBox();
  const y = box.y + box.height / 2;
  const touch = (type, x) => cdp.send('Input.dispatchTouchEvent', { type, touchPoints: type === 'touchEnd' ? [] : [{ x, y }] });

  await touch('touchStart', 200);
  await page.waitForTimeout(800);
  await touch('touchEnd');
  await expectAlert(page, 'Rename Deck');
  await answer(page, 'Cancel');
  await alertBox(page).waitFor({ state: 'detached' });

  await touch('touchStart', 300);
  for (const x of [280, 250, 220, 200]) await touch('touchMove', x);
  await touch('touchEnd');
  const swipe = row(page, id).locator('.swipe-delete');
  await page.waitForFunction((i) => document.querySelector(`#content .row[data-id="${i}"]`).classList.contains('swiped'), id);
  await swipe.click();
  await expectAlert(page, 'Confirm', 'Are you sure you wish to delete this deck?');
  await answer(page, 'No');
  await cdp.detach();
  await page.setViewportSize({ width: 1280, height: 800 });
});
