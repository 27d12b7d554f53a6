// Filtered decks and custom study from the browser: a filtered deck built from a search (with
// bad steps and a search that matches nothing refused first), studied and emptied; and every
// custom study mode run once, each ending in the study screen or its own message.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { answer, answered, basicCollection, expectAlert, noSpinner, row, screenshots, sharedSession } from './rivo.mjs';

let page;
const BUILT = 'Cards will be returned to their original deck as you answer them.';
async function title(text) {
  await page.locator('#title').filter({ hasText: new RegExp(`^${text}$`) }).waitFor();
  await answered(page);
}
const rowByText = (text) => page.locator('#content .row').filter({ has: page.locator('.row-title', { hasText: new RegExp(`^${text}$`) }) });
async function field(id, text) {
  const input = row(page, id).locator('input.row-field');
  await input.fill(text);
  await input.press('Enter');
  for (let i = 0; i < 50 && await input.inputValue() !== text; i++) await page.waitForTimeout(50);
}
async function toDeckList() {
  // A finishing job may pop to the deck list while this walks back.
  for (let i = 0; i < 6 && await page.locator('#title').innerText() !== 'Decks'; i++) {
    await answered(page);
    await page.locator('#nav-left .back').click({ timeout: 2000 }).catch(() => {});
    await page.waitForTimeout(150);
  }
  await title('Decks');
}
const studyShown = () => page.locator('#content .web-screen .status:not([hidden])').waitFor();
async function action(key) {
  await answered(page);
  await page.getByRole('button', { name: 'Tools' }).click();
  await title('Tools');
  await rowByText('More').click();
  await title('All Actions');
  await row(page, key).click();
}

sharedSession((dir) => basicCollection(dir, 12, (i) => (i % 2 ? 'verb' : 'noun')), (s) => { ({ page } = s); });

test('a filtered deck from a search: refused input, built, studied and emptied', async () => {
  // A search that matches nothing: "No" leaves, and the unused new deck is gone.
  await page.getByRole('button', { name: 'Add/Export' }).click();
  await page.locator('#alerts .dialog.sheet').getByRole('button', { name: 'Create Filtered Deck' }).click();
  await title('Filtered Deck 1');
  assert.equal(await row(page, 's0r0').locator('input').inputValue(), 'deck:"Default" ');
  await field('s0r0', 'tag:nothing');
  await page.getByRole('button', { name: 'Build' }).click();
  await expectAlert(page, 'No cards', 'The provided search did not match any cards. Would you like to revise it?');
  await answer(page, 'No');
  await title('Decks');
  assert.equal(await row(page, 'Filtered Deck 1').count(), 0);

  await page.getByRole('button', { name: 'Add/Export' }).click();
  await page.locator('#alerts .dialog.sheet').getByRole('button', { name: 'Create Filtered Deck' }).click();
  await title('Filtered Deck 1');
  // A search that can't be built matches nothing; "Yes" stays to revise it.
  await field('s0r0', '(deck:"Default"');
  await page.getByRole('button', { name: 'Build' }).click();
  await expectAlert(page, 'No cards');
  await answer(page, 'Yes');
  await title('Filtered Deck 1');
  await field('s0r0', 'deck:"Default" tag:verb');
  await field('s0r1', '4');
  await row(page, 's1r0').click();  // custom steps on
  await answered(page);
  await field('s1r1', '1 ten');
  await page.getByRole('button', { name: 'Build' }).click();
  await expectAlert(page, 'Invalid step', 'Steps must be numbers.');
  await answer(page, 'OK');
  await field('s1r1', '1 10');
  await screenshots(page, 'filtered-deck');
  await page.getByRole('button', { name: 'Build' }).click();
  await expectAlert(page, null, BUILT);
  await answer(page, 'OK');
  await studyShown();
  // The first key may come before the card's page has the keys.
  for (let i = 0; i < 40 && !await page.locator('#toolbar .answer').count(); i++) {
    await page.keyboard.press(' ');
    await page.waitForTimeout(250);
  }
  await page.keyboard.press('3');
  await page.waitForFunction(() => !document.querySelector('#toolbar .answer'));

  await action('empty');
  await noSpinner(page);
  await toDeckList();
  // Emptied: the deck stays, without cards; Default has all its new cards back.
  await row(page, 'Filtered Deck 1').waitFor();
  const counts = async (deck) => row(page, deck).locator('.count').allInnerTexts();
  assert.deepEqual(await counts('Filtered Deck 1'), ['0', '0']);
  assert.equal(page.errors.length, 0, page.errors.join('\n'));
});

test('each custom study mode once', async () => {
  const outcomes = [];
  for (let mode = 0; mode < 8; mode++) {
    await toDeckList();
    await row(page, 'Default').click();
    await page.locator('#content .web-screen').waitFor();  // a card, or the finished message once a mode took all
    await action('customStudy');
    await title('Custom Study');
    await row(page, 's0r0').click();
    await title('Study Type');
    await row(page, `c${mode}`).click();
    await answered(page);
    await page.locator('#nav-left .back').click();
    await title('Custom Study');
    if (mode === 5) {
      await row(page, 's1r1').click();  // include "verb"
      await title('Include cards with tag');
      await rowByText('verb').click();
      await answered(page);
      await page.locator('#nav-left .back').click();
      await title('Custom Study');
      await row(page, 's1r1').filter({ hasText: 'verb' }).waitFor();
      await screenshots(page, 'custom-study');
    }
    await page.getByRole('button', { name: 'Done' }).click();
    const alert = page.locator('#alerts .dialog');
    await Promise.race([alert.waitFor(), studyShown()]);
    await page.waitForTimeout(200);
    if (await alert.count()) {
      outcomes.push(await alert.locator('p').first().innerText());
      await answer(page, 'OK');
    } else {
      outcomes.push('study');
    }
  }
  assert.deepEqual(outcomes.map((o) => o.startsWith(BUILT) ? 'built' : o), [
    'study',                                                 // more new cards today
    "Can't extend limits - no extra cards are available.",   // no reviews at all
    'The selected options did not match any cards.',         // nothing forgotten
    'The selected options did not match any cards.',         // nothing due ahead
    'built',                                                 // new cards added today
    'built',                                                 // new cards tagged verb
    'The selected options did not match any cards.',         // no due cards
    'built',                                                 // cram: every card
  ]);
  await toDeckList();
  await row(page, 'Custom Study Session').waitFor();
  assert.equal(page.errors.length, 0, page.errors.join('\n'));
});
