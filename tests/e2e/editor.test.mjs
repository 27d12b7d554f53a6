// Adding and editing notes as a user does: the editor page in its frame, the deck and type
// choosers, cloze numbers, duplicates, the HTML mode, images, recordings, the preview, the
// search screen and card info from it. What the browser did is checked in the collection once Rivo has stopped.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { alertBox, answer, browser, expectAlert, noSpinner, perTestServers, row, rivoSync, screenshots, sqlOn as sql } from './rivo.mjs';

const servers = perTestServers();
async function start({ notes = [], prefs = {}, context } = {}) {
  const data = servers.init(prefs);
  for (const fields of notes) assert.equal(rivoSync(['--data', data, 'add', ...fields]).status, 0);
  return servers.start(data, { context });
}

const editor = (page) => page.frameLocator('iframe.web-view');
const field = (page, i) => editor(page).locator('.field').nth(i);
const popupText = (page) => page.locator('#popup:not([hidden]) .popup-text');
const toolbar = (page, id) => page.locator(`#toolbar [data-button="${id}"]`);

async function openAdd(page) {
  await toolbar(page, 'addNote').click();
  await page.locator('#title-button').filter({ hasText: 'Add' }).waitFor();
  await field(page, 0).waitFor();
}
// Types into field `i`, replacing what it held.
async function typeInto(page, i, text) {
  await field(page, i).click();
  await page.keyboard.press('Control+A');
  await page.keyboard.type(text);
}
async function chooseType(page, name) {
  await editor(page).locator('#notetype').click();
  await page.locator('#title').filter({ hasText: 'Select Note Type' }).waitFor();
  await page.locator('#content .row').filter({ hasText: new RegExp(`^${name.replace(/[()]/g, '\\$&')}$`) }).click();
  await editor(page).locator('#notetype .chooser-value').filter({ hasText: name }).waitFor();
}
async function saved(page) {
  await page.keyboard.press('Control+Enter');
  await popupText(page).filter({ hasText: 'Added' }).waitFor();
  await noSpinner(page);
}

test('Basic, reversed and cloze notes added in the editor land with their cards and decks', async () => {
  const { data, page, stop } = await start();
  await openAdd(page);
  await screenshots(page, 'editor-add-empty');

  await typeInto(page, 0, 'Capital of France');
  await typeInto(page, 1, 'Paris');
  await editor(page).locator('#tags-input').click();
  await page.keyboard.type('geo europe ');
  await saved(page);
  // Fields start empty; the tags stay for the next note.
  assert.equal(await field(page, 0).innerHTML(), '');
  assert.equal(await editor(page).locator('.tag').count(), 2);

  // A note that makes no card keeps its text; a duplicate first field is pointed out.
  await typeInto(page, 1, 'only a back');
  await page.keyboard.press('Control+Enter');
  await expectAlert(page, null, 'This note would not generate any cards.');
  await answer(page, 'OK');
  assert.equal(await field(page, 1).innerText(), 'only a back');
  await typeInto(page, 0, 'Capital of France');
  await field(page, 1).click();
  await editor(page).locator('#warning').filter({ hasText: 'same first field' }).waitFor();
  await screenshots(page, 'editor-add');

  // Another type keeps the values it has room for; a new deck made from the chooser.
  await chooseType(page, 'Basic (and reversed card)');
  assert.equal(await field(page, 0).innerText(), 'Capital of France');
  await typeInto(page, 0, 'Capital of Peru');
  await typeInto(page, 1, 'Lima');
  await editor(page).locator('#deck').click();
  await page.locator('#title').filter({ hasText: 'Select Deck' }).waitFor();
  await page.locator('#nav-right [data-button="add"]').click();
  await answer(page, 'Create', 'Geography');
  await editor(page).locator('#deck .chooser-value').filter({ hasText: 'Geography' }).waitFor();
  await page.locator('#nav-right [data-button="save"]').click();
  await popupText(page).filter({ hasText: 'Added' }).waitFor();
  await noSpinner(page);

  // Cloze numbers: the next is always one past the highest.
  await chooseType(page, 'Cloze');
  assert.equal(await toolbar(page, 'cloze').count(), 1);
  await typeInto(page, 0, 'Paris is in France');
  await page.keyboard.press('Home');
  for (let i = 0; i < 5; i++) await page.keyboard.press('Shift+ArrowRight');
  await toolbar(page, 'cloze').click();
  await editor(page).locator('.field').first().filter({ hasText: '{{c1::Paris}}' }).waitFor();
  await page.keyboard.press('End');
  for (let i = 0; i < 6; i++) await page.keyboard.press('Shift+ArrowLeft');
  await toolbar(page, 'cloze').click();
  await editor(page).locator('.field').first().filter({ hasText: '{{c2::France}}' }).waitFor();
  await saved(page);
  assert.deepEqual(page.errors, []);
  await stop();

  const notes = sql(data, "select flds, tags from notes order by id").split('\n');
  assert.deepEqual(notes, [
    'Capital of France\x1fParis| europe geo ',
    'Capital of Peru\x1fLima| europe geo ',
    '{{c1::Paris}} is in {{c2::France}}\x1f| europe geo',
  ]);
  assert.equal(sql(data, "select group_concat(c.ord || ':' || (select json_extract(value, '$.name') from json_each((select decks from col)) where key = cast(c.did as text)), ' ') from (select * from cards order by nid, ord) c"),
    '0:Default 0:Geography 1:Geography 0:Geography 1:Geography');
});

test('editing fields and tags shows on the review screen; bold and HTML mode round-trip; cancel drops', async () => {
  const { data, page, stop } = await start({ notes: [['Capital of Peru?', 'Lima']], prefs: { showQuickbar: true } });
  await row(page, 'Default').click();
  await page.frameLocator('iframe.web-view').locator('#qa').filter({ hasText: 'Capital of Peru?' }).waitFor();
  await page.locator('#title .segment').filter({ hasText: 'Edit' }).click();
  await page.locator('#title-button').filter({ hasText: 'Edit' }).waitFor();
  assert.equal(await editor(page).locator('#choosers').isHidden(), true);
  await field(page, 1).click();
  await page.keyboard.press('End');
  await page.keyboard.type(', Peru');
  await page.keyboard.press('Home');
  for (let i = 0; i < 4; i++) await page.keyboard.press('Shift+ArrowRight');
  await toolbar(page, 'bold').click();
  await toolbar(page, 'bold').and(page.locator('.on')).waitFor();
  await editor(page).locator('#tags-input').click();
  await page.keyboard.type('southamerica');
  await screenshots(page, 'editor-edit');

  // The raw HTML of the fields, edited and back.
  await toolbar(page, 'html').click();
  const raw = editor(page).locator('textarea.field').nth(1);
  assert.equal(await raw.inputValue(), '<b>Lima</b>, Peru');
  await raw.fill('<b>Lima</b>, <i>Peru</i>');
  await toolbar(page, 'html').click();
  await editor(page).locator('.field i').filter({ hasText: 'Peru' }).waitFor();

  // The preview shows the edited card before it is saved.
  await toolbar(page, 'preview').click();
  await page.locator('#title').filter({ hasText: 'Preview' }).waitFor();
  const preview = page.frameLocator('iframe.web-view');
  await preview.locator('#qa').filter({ hasText: 'Capital of Peru?' }).waitFor();
  await page.locator('#nav-right [data-button="flip"]').click();
  await preview.locator('#qa b').filter({ hasText: 'Lima' }).waitFor();
  await screenshots(page, 'editor-preview');
  await page.locator('#nav-left .back').click();

  await page.locator('#nav-right [data-button="save"]').click();
  await page.locator('#content .web-screen .status:not([hidden])').waitFor();
  await page.frameLocator('iframe.web-view').locator('#qa').filter({ hasText: 'Capital of Peru?' }).waitFor();
  await page.waitForTimeout(300);
  await page.keyboard.press(' ');
  await page.frameLocator('iframe.web-view').locator('#qa i').filter({ hasText: 'Peru' }).waitFor();

  // Escape leaves without saving.
  await page.locator('#title .segment').filter({ hasText: 'Edit' }).click();
  await typeInto(page, 0, 'Never saved');
  await page.keyboard.press('Escape');
  await page.locator('#title .segment').first().waitFor();
  assert.deepEqual(page.errors, []);
  await stop();
  assert.equal(sql(data, 'select flds || tags from notes'), 'Capital of Peru?\x1f<b>Lima</b>, <i>Peru</i> southamerica');
});

test('pictures go to the media folder and the preview; bad files and HTML are refused without loss; search opens and returns', async () => {
  const { data, page, stop } = await start({ notes: [['Capital of Chile?', 'Santiago'], ['Capital of Spain?', 'Madrid']] });
  const media = path.join(data, 'profiles/User 1/media');
  await openAdd(page);
  await typeInto(page, 0, 'A flag');
  const png = path.join(data, 'flag.png');
  fs.writeFileSync(png, Buffer.from(await page.evaluate(() => {
    const c = document.createElement('canvas');
    c.width = 300;
    c.height = 200;
    const g = c.getContext('2d');
    g.fillStyle = '#c00';
    g.fillRect(0, 0, 300, 100);
    return c.toDataURL('image/png').split(',')[1];
  }), 'base64'));
  await page.locator('input[data-upload="image"]').setInputFiles(png);
  await editor(page).locator('.field img').waitFor();
  const name = await editor(page).locator('.field img').getAttribute('src');
  assert.match(name, /^image-\d+\.jpg$/);
  assert.ok(fs.existsSync(path.join(media, name)));
  // Scaled to 1024 wide whatever its size, as the picture's width shows in the card.
  await typeInto(page, 1, 'Back');
  await toolbar(page, 'preview').click();
  const preview = page.frameLocator('iframe.web-view');
  await preview.locator('#qa img').waitFor();
  await page.waitForFunction(() => true);
  assert.equal(await preview.locator('#qa img').evaluate((img) => img.complete && img.naturalWidth), 1024);
  await page.locator('#nav-left .back').click();

  // Not a picture, under a name that points elsewhere: a message, nothing stored, text kept.
  const evil = path.join(data, 'evil.png');
  fs.writeFileSync(evil, 'not a picture');
  const before = fs.readdirSync(media).sort();
  await field(page, 0).click();
  await page.locator('input[data-upload="image"]').setInputFiles({ name: '../../x.png', mimeType: 'image/png', buffer: fs.readFileSync(evil) });
  await expectAlert(page, null, "That image can't be added");
  await answer(page, 'OK');
  assert.deepEqual(fs.readdirSync(media).sort(), before);
  assert.equal(await field(page, 0).innerText(), 'A flag');

  // Field HTML that would take the page over stays inert, and comes back as it was.
  await toolbar(page, 'html').click();
  await editor(page).locator('textarea.field').nth(1).fill('x<style>body{display:none}</style><img src=nope onerror="document.body.remove()">');
  await toolbar(page, 'html').click();
  await editor(page).locator('.field .inert').waitFor();
  assert.equal(await editor(page).locator('body').isVisible(), true);
  await saved(page);
  await page.locator('#nav-left [data-button="cancel"]').click();

  // Search: a row opens the editor; the search runs again on return.
  await toolbar(page, 'search').click();
  await page.locator('#title').filter({ hasText: 'Search' }).waitFor();
  assert.equal(await page.locator('#search-input').inputValue(), 'deck:current ');
  await page.locator('#search-input').fill('capital');
  await page.keyboard.press('Enter');
  await page.locator('#content .row').nth(1).waitFor();
  assert.deepEqual(await page.locator('#content .row .row-title').allInnerTexts(), ['Capital of Chile?; Santiago', 'Capital of Spain?; Madrid']);
  await screenshots(page, 'search');
  // A row's menu (right click) opens the card's statistics.
  await page.locator('#content .row').filter({ hasText: 'Chile' }).click({ button: 'right' });
  await page.locator('#title').filter({ hasText: 'Card Info' }).waitFor();
  await editor(page).getByText('Card Type').waitFor();
  assert.match(await editor(page).locator('body').innerText(), /Card Type\s+Card 1\s+Note Type\s+Basic/);
  await page.locator('#nav-left .back').click();
  await page.locator('#title').filter({ hasText: 'Search' }).waitFor();
  await page.locator('#content .row').filter({ hasText: 'Spain' }).click();
  await page.locator('#title-button').filter({ hasText: 'Edit' }).waitFor();
  await typeInto(page, 0, 'Capital of Spain (Europe)?');
  await page.locator('#nav-right [data-button="save"]').click();
  await page.locator('#content .row').filter({ hasText: 'Capital of Spain (Europe)?' }).waitFor();
  assert.deepEqual(page.errors, []);
  await stop();
  assert.equal(sql(data, "select substr(flds, instr(flds, char(31)) + 1) from notes where flds like 'A flag%'"),
    'x<style>body{display:none}</style><img src=nope onerror="document.body.remove()">');
});

test('a recording from the microphone lands as AAC in an .m4a file and a sound tag; cancel and a refused microphone store nothing', async () => {
  const mic = await browser(['--use-fake-ui-for-media-stream', '--use-fake-device-for-media-stream']);
  try {
    const { data, page, stop } = await start({ context: mic.context });
    const media = path.join(data, 'profiles/User 1/media');
    await openAdd(page);
    await typeInto(page, 0, 'Listen:');
    await toolbar(page, 'record').click();
    const dialog = page.locator('.recording .dialog');
    await dialog.getByText('Recording...').waitFor();
    await page.locator('.recording-time').filter({ hasText: /^0:01 of 10:00$/ }).waitFor();
    await screenshots(page, 'editor-recording');
    await dialog.getByRole('button', { name: 'Finish' }).click();
    const tagged = field(page, 0).filter({ hasText: /\[sound:rec-\d+\.m4a\]/ });
    await tagged.waitFor();
    const name = (await tagged.innerText()).match(/\[sound:(rec-\d+\.m4a)\]/)[1];
    const probe = execFileSync('ffprobe', ['-v', 'error', '-show_entries', 'stream=codec_name,sample_rate,channels',
      '-of', 'csv=p=0', path.join(media, name)], { encoding: 'utf8' }).trim();
    assert.equal(probe, 'aac,44100,1');

    // Cancel (Escape) keeps nothing.
    await field(page, 1).click();
    await toolbar(page, 'record').click();
    await dialog.waitFor();
    await page.keyboard.press('Escape');
    await dialog.waitFor({ state: 'detached' });
    // A refused microphone: the message, nothing stored, the text kept.
    await page.evaluate(() => {
      navigator.mediaDevices.getUserMedia = () => Promise.reject(new DOMException('refused', 'NotAllowedError'));
    });
    await field(page, 1).click();
    await toolbar(page, 'record').click();
    await expectAlert(page, null, 'allow Rivo to access the microphone');
    await answer(page, 'OK');
    await alertBox(page).waitFor({ state: 'detached' });
    assert.deepEqual(fs.readdirSync(media), [name]);
    await typeInto(page, 1, 'a tone');
    await field(page, 1).filter({ hasText: /^a tone$/ }).waitFor();
    await saved(page);
    assert.deepEqual(page.errors, []);
    await stop();
    assert.equal(sql(data, 'select flds from notes'), `Listen:[sound:${name}]\x1fa tone`);
  } finally {
    await mic.close();
  }
});

test('the older editor, chosen in the preferences, adds from plain text areas', async () => {
  const { data, page, stop } = await start({ prefs: { useOldEditor: true } });
  await toolbar(page, 'addNote').click();
  await page.locator('#title').filter({ hasText: 'Add' }).waitFor();
  await row(page, 'f0').locator('textarea').fill('Two\nlines');
  await row(page, 'f1').locator('textarea').fill('Back');
  await row(page, 'tags').locator('input').fill('old');
  await screenshots(page, 'editor-old');
  await page.locator('#nav-right [data-button="save"]').click();
  await page.waitForFunction(() => document.querySelector('.row[data-id="f0"] textarea').value === '');
  assert.deepEqual(page.errors, []);
  await stop();
  assert.equal(sql(data, 'select flds || tags from notes'), 'Two<br>lines\x1fBack old');
});
