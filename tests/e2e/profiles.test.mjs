// A new user: the first launch with its welcome, then the profiles: add, rename, switch and
// delete, with each refusal the profile screen gives.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { alertBox, answer, browser, expectAlert, noSpinner, open, row, rowIds, screenshots, serve, tempDir } from './rivo.mjs';

let data, rivo, chrome, page;

before(async () => {
  data = tempDir();
  rivo = await serve(data);
  chrome = await browser();
});

after(async () => {
  await chrome.close();
  assert.equal(await rivo.stop(), 143);  // 128 + SIGTERM, after saving
  fs.rmSync(data, { recursive: true, force: true });
});

test('the first launch welcomes once, and the secret address becomes a clean one', async () => {
  page = await open(chrome.context, rivo.url);
  assert.equal(new URL(page.url()).search, '');
  await expectAlert(page, 'Welcome!', 'Please click Help in the top left to get started.');
  await answer(page, 'OK');
  await noSpinner(page);
  assert.deepEqual(await rowIds(page), ['Default']);
  assert.equal(await page.locator('#title').innerText(), 'Decks');
  await page.reload();
  await page.locator('#content .row').first().waitFor();
  assert.equal(await alertBox(page).count(), 0);
  // Help is a page of its own, with the way back.
  await page.getByRole('button', { name: 'Help' }).click();
  await page.frameLocator('iframe.web-view').locator('h1').filter({ hasText: 'Getting started' }).waitFor();
  await page.getByRole('button', { name: 'Decks' }).click();
  await page.locator('#content .row').first().waitFor();
});

async function addProfile(name) {
  await page.getByRole('button', { name: 'Add' }).click();
  await expectAlert(page, 'Create profile');
  await answer(page, 'OK', name);
}

async function menu(name) {
  await row(page, name).click({ button: 'right' });
}

test('profiles are added, renamed, switched and deleted, with each refusal', async () => {
  await page.locator('#title-button').click();
  await page.locator('#title').filter({ hasText: 'Profiles' }).waitFor();

  await addProfile('Work');
  await row(page, 'Work').waitFor();
  for (const [typed, message] of [['__', 'Please avoid symbols and underscores.'],
    ['Work', 'A profile with that name already exists.']]) {
    await addProfile(typed);
    await expectAlert(page, null, message);
    await answer(page, 'OK');
  }

  await menu('User 1');
  await expectAlert(page, null, 'To rename or delete this profile, please select another first.');
  await answer(page, 'OK');

  await menu('Work');
  await page.locator('.sheet-title').filter({ hasText: 'Action' }).waitFor();
  await answer(page, 'Rename');
  await expectAlert(page, "Rename 'Work'");
  await answer(page, 'OK', 'User 1');
  await expectAlert(page, null, 'A profile with the same name already exists.');
  await answer(page, 'OK');
  await menu('Work');
  await answer(page, 'Rename');
  await answer(page, 'OK', 'Job');
  await row(page, 'Job').waitFor();
  assert.deepEqual(await rowIds(page), ['User 1', 'Job']);
  await screenshots(page, 'profiles');

  // Switching: a job with its spinner, then the deck list of the other profile.
  await row(page, 'Job').click();
  await page.locator('#title').filter({ hasText: 'Job' }).waitFor();
  await noSpinner(page);
  assert.deepEqual(await rowIds(page), ['Default']);
  assert.ok(fs.existsSync(`${data}/profiles/Job/collection.rivo2`));

  await page.locator('#title-button').click();
  await menu('User 1');
  await answer(page, 'Delete');
  await expectAlert(page, 'Confirm Delete', 'Delete profile?');
  await answer(page, 'No');
  assert.deepEqual(await rowIds(page), ['User 1', 'Job']);
  await menu('User 1');
  await answer(page, 'Delete');
  await answer(page, 'Yes');
  await page.waitForFunction(() => document.querySelectorAll('#content .row').length === 1);
  assert.deepEqual(await rowIds(page), ['Job']);
  assert.ok(!fs.existsSync(`${data}/profiles/User 1`));
  assert.deepEqual(page.errors, []);
});
