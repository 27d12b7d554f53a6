// The options screens as a user meets them: deck options that the next study session follows
// (with refused and limited input), the collection's day start moving `today`, the learn-ahead
// time, and the media check deleting an unused file.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { answer, answered, basicCollection, expectAlert, noSpinner, open, row, screenshots, sharedSession, sqlOn } from './rivo.mjs';

let chrome, data, rivo, page, crt, hour;
const sql = (statement) => sqlOn(data, statement);
const rowByText = (text) => page.locator('#content .row').filter({ has: page.locator('.row-title', { hasText: new RegExp(`^${text}$`) }) });
async function back() {
  await answered(page);
  await page.locator('#nav-left .back').click();
}
async function title(text) {
  await page.locator('#title').filter({ hasText: new RegExp(`^${text}$`) }).waitFor();
  await answered(page);
}
// Fields by row id: two rows of deck options are called "Steps".
async function field(id, text) {
  const input = row(page, id).locator('input.row-field');
  await input.fill(text);
  await input.press('Enter');
}
const fieldValue = (id) => row(page, id).locator('input.row-field').inputValue();
async function fieldShows(id, want) {
  for (let i = 0; i < 50 && await fieldValue(id) !== want; i++) await page.waitForTimeout(50);
  assert.equal(await fieldValue(id), want);
}
const conf1 = (key) => JSON.parse(sql("select json_extract(dconf, '$.1." + key + "') from col"));

sharedSession((dir) => {
  basicCollection(dir, 10);
  crt = Number(sqlOn(dir, 'select crt from col'));
}, (s) => { ({ chrome, data, rivo, page } = s); });

test('deck options: the next study session follows new cards per day and the steps', async () => {
  await row(page, 'Default').click();
  await page.locator('#content .web-screen .status:not([hidden])').waitFor();
  await answered(page);
  await page.getByRole('button', { name: 'Tools' }).click();
  await row(page, 'studyOptions').click();
  await title('Deck Options');
  await screenshots(page, 'deck-options');

  await field('s1r0', '3');
  await fieldShows('s1r0', '3');
  await field('s1r0', 'abc');  // refused: the stored value comes back
  await fieldShows('s1r0', '3');
  await field('s1r1', '2 abc 0');  // words dropped, a step of 0 becomes 1
  await fieldShows('s1r1', '2 1');
  await field('s1r5', '12');  // limited to the lower bound
  await fieldShows('s1r5', '130');
  await field('s2r3', '50000');
  await fieldShows('s2r3', '36500');

  // A new group as a copy, chosen for the deck; the default group can't be deleted.
  await rowByText('Options group').click();
  await title('Options group');
  assert.equal(await rowByText('Default \\(used by 1 decks\\)').locator('.delete').count(), 0);
  await page.getByRole('button', { name: 'Add' }).click();
  await expectAlert(page, 'Add Options Group');
  await answer(page, 'Done', 'Fast');
  await rowByText('Fast \\(used by 1 decks\\)').waitFor();
  await screenshots(page, 'deck-options-groups');
  await back();
  await title('Deck Options');
  await rowByText('Options group').filter({ hasText: 'Fast' }).waitFor();
  await fieldShows('s1r0', '3');  // copied from the group it came from
  await field('s1r0', '4');
  await fieldShows('s1r0', '4');

  await back();
  await title('Tools');
  await back();
  // The study screen was reset: four new cards today, and Again shows the first step.
  await page.locator('#content .web-screen .status').filter({ hasText: '4' }).waitFor();
  await page.keyboard.press(' ');
  await page.locator('#toolbar .answer').first().filter({ hasText: '2m' }).waitFor();
  assert.deepEqual(page.errors, []);
});

test('collection options: the day start moves today, learn-ahead is stored in seconds', async () => {
  await back();
  await page.locator('#title').filter({ hasText: 'Decks' }).waitFor();
  await answered(page);
  await page.getByRole('button', { name: 'Settings' }).click();
  await title('Settings');
  await screenshots(page, 'settings');
  await rowByText('Scheduling').click();
  await title('Scheduling');
  await screenshots(page, 'collection-options');

  await field('s0r2', '20');
  await fieldShows('s0r2', '20');
  await field('s0r2', 'soon');
  await fieldShows('s0r2', '20');

  // An hour whose move puts now on another day than before.
  const now = Date.now() / 1000;
  const today = (c) => Math.floor((now - c) / 86400);
  const hourOf = (c) => new Date(c * 1000).getHours();
  hour = 0;
  while (hour < 24 && today(crt + (hour - hourOf(crt)) * 3600) === today(crt)) hour++;
  assert.ok(hour < 24);
  await rowByText('Day Starts').click();
  await title('Day Starts');
  await row(page, `c${hour}`).click();
  await back();
  await title('Scheduling');
  const hh = String(hour).padStart(2, '0') + ':00';
  await rowByText('Day Starts').filter({ hasText: hh }).waitFor();
  await back();
  await title('Settings');
});

test('media check: the report, and Delete Unused removes the unused file', async () => {
  const media = path.join(data, 'profiles/User 1/media');
  fs.writeFileSync(path.join(media, 'stray.png'), 'x');
  await rowByText('Check Media').click();
  await title('Check Media');
  await page.locator('#content h2.group-title', { hasText: '1 file(s) present but not used by any notes:' }).first().waitFor();
  await page.locator('#content .row', { hasText: 'stray.png' }).waitFor();
  await screenshots(page, 'check-media');
  await page.getByRole('button', { name: 'Delete Unused' }).click();
  await page.getByText('Unused files removed.').waitFor();
  assert.equal(fs.existsSync(path.join(media, 'stray.png')), false);
  assert.deepEqual(page.errors, []);
});

test('an options group removed in another tab: this tab can no longer pick by the old list', async () => {
  await back();
  await title('Settings');
  await back();
  await title('Decks');
  await row(page, 'Default').click();
  await page.locator('#content .web-screen').waitFor();
  await answered(page);
  await page.getByRole('button', { name: 'Tools' }).click();
  await row(page, 'studyOptions').click();
  await title('Deck Options');
  await rowByText('Options group').click();
  await title('Options group');
  await page.getByRole('button', { name: 'Add' }).click();
  await expectAlert(page, 'Add Options Group');
  await answer(page, 'Done', 'Bulk');
  await rowByText('Bulk \\(used by 1 decks\\)').waitFor();
  const listed = await page.evaluate(() => state.screen.id);

  // The other tab deletes the first line, the group this deck uses: the deck falls back to
  // the default group, and a pick of the first line as this tab had it must not land there.
  const other = await open(chrome.context, rivo.url);
  await other.getByRole('button', { name: 'Delete Bulk (used by 1 decks)' }).click();
  await expectAlert(other, 'Full Sync Required');
  await answer(other, 'Yes');
  await rowByText('Default \\(used by 1 decks\\)').waitFor();
  const stale = await page.evaluate((screen) => fetch('/event', {
    method: 'POST',
    headers: { 'Content-Type': 'application/json' },
    body: JSON.stringify({ screen, element: 'row', id: 'c0', kind: 'select' }),
  }).then((r) => r.status), listed);
  assert.equal(stale, 409);
  await other.close();

  await rowByText('Fast \\(used by 0 decks\\)').click();
  await back();
  await title('Deck Options');
  await rowByText('Options group').filter({ hasText: 'Fast' }).waitFor();
  await back();
  await title('Tools');
  assert.deepEqual(page.errors, []);
});

test('what the screens wrote is in the collection file', async () => {
  await rivo.stop();  // it holds the file while it runs
  assert.equal(conf1('new.perDay'), 3);  // the default group kept its own values
  assert.deepEqual(conf1('new.delays'), [2, 1]);
  assert.equal(conf1('new.initialFactor'), 1300);
  assert.equal(conf1('rev.maxIvl'), 36500);
  const fast = JSON.parse(sql("select value from json_each((select dconf from col)) where json_extract(value, '$.name') = 'Fast'"));
  assert.equal(fast.new.perDay, 4);
  assert.equal(Number(sql("select json_extract(decks, '$.1.conf') from col")), fast.id);
  assert.equal(JSON.parse(sql("select json_extract(conf, '$.collapseTime') from col")), 1200);
  const moved = Number(sql('select crt from col'));
  const hourOf = (c) => new Date(c * 1000).getHours();
  assert.equal(moved - crt, (hour - hourOf(crt)) * 3600);
  const today = (c) => Math.floor((Date.now() / 1000 - c) / 86400);
  assert.notEqual(today(moved), today(crt));
});
