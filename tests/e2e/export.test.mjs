// The export screen and the backups screen in the browser: a deck exported arrives as a
// download that holds a package, and a backup is created, listed and reverted to.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { answer, expectAlert, generate, launched, noSpinner, row, rowIds, screenshots, tempDir } from './rivo.mjs';

let data, rivo, chrome, page;

async function fromSheet(entry, title) {
  await page.getByRole('button', { name: 'Add/Export' }).click();
  await page.locator('.sheet-title').filter({ hasText: 'Add/Export' }).waitFor();
  await answer(page, entry);
  await page.locator('#title').filter({ hasText: title }).waitFor();
  await noSpinner(page);
}

before(async () => {
  data = tempDir();
  generate(data, { notes: 60, decks: 6 });
  ({ rivo, chrome, page } = await launched(data));
});

after(async () => {
  await chrome.close();
  await rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
});

test('a deck exported arrives as a download holding a package', async () => {
  const deck = (await rowIds(page)).find((id) => id !== 'Default');
  await fromSheet('Export File...', 'Export');
  await screenshots(page, 'export');
  // Without scheduling: the switch flips by its row.
  await row(page, 'sched').click();
  await page.locator('#content .row[data-id="sched"] input:not(:checked)').waitFor();
  const [download] = await Promise.all([
    page.waitForEvent('download'),
    row(page, `deck:${deck}`).click(),
  ]);
  await expectAlert(page, '', 'saved to Documents');
  await answer(page, 'OK');
  assert.equal(download.suggestedFilename(), `${deck}.rpkg`);
  const file = await download.path();
  const bytes = fs.readFileSync(file);
  assert.equal(bytes.readUInt32LE(0), 0x04034b50, 'a zip');
  assert.ok(bytes.includes(Buffer.from('collection.rivo2')));
  assert.deepEqual(bytes, fs.readFileSync(path.join(data, 'Documents', `${deck}.rpkg`)));
  await page.locator('#title').filter({ hasText: /Decks|User 1/ }).waitFor();
});

test('a backup is created, listed and reverted to', async () => {
  await fromSheet('Backups...', 'Backups');
  const before = (await rowIds(page)).filter((id) => id.startsWith('backup-'));
  await page.getByRole('button', { name: 'Create Now' }).click();
  await page.locator('#content .row[data-id^="backup-User 1-"]').nth(before.length).waitFor();
  const backups = (await rowIds(page)).filter((id) => id.startsWith('backup-'));
  assert.equal(backups.length, before.length + 1);
  await screenshots(page, 'backups');

  // A deck added after the backup is gone once reverted to it.
  await page.locator('#nav-left .back').click();
  await page.getByRole('button', { name: 'Add/Export' }).waitFor();
  await page.getByRole('button', { name: 'Add/Export' }).click();
  await answer(page, 'Add Empty Deck');
  await answer(page, 'Create', 'Added After');
  await row(page, 'Added After').waitFor();
  await fromSheet('Backups...', 'Backups');
  const newest = (await rowIds(page)).filter((id) => id.startsWith('backup-')).sort(
    (a, b) => Number(b.match(/(\d+)\.rpkg$/)[1]) - Number(a.match(/(\d+)\.rpkg$/)[1]))[0];
  await row(page, newest).click();
  await expectAlert(page, 'Revert to backup', `Revert to ${newest}?`);
  await screenshots(page, 'backups-revert');
  await answer(page, 'Yes');
  await expectAlert(page, '', 'Reverted to backup.');
  await answer(page, 'OK');
  await noSpinner(page);
  assert.ok(!(await rowIds(page)).includes('Added After'));
  assert.deepEqual(page.errors, []);
});
