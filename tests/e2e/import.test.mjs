// Importing packages through the deck list's upload control: a shared deck merges, a file named
// collection.rpkg replaces after the confirmation, and a bad file is refused with both alerts.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';
import { answer, expectAlert, generate, launched, noSpinner, rowIds, screenshots, tempDir } from './rivo.mjs';

let data, source, rivo, chrome, page;

// A zip of stored entries, written here so that the test needs no exporter.
function zip(entries) {
  const parts = [], directory = [];
  let offset = 0;
  for (const [name, bytes] of entries) {
    const n = Buffer.from(name), crc = zlib.crc32(bytes);
    const local = Buffer.alloc(30);
    local.writeUInt32LE(0x04034b50, 0);
    local.writeUInt16LE(20, 4);
    local.writeUInt32LE(crc, 14);
    local.writeUInt32LE(bytes.length, 18);
    local.writeUInt32LE(bytes.length, 22);
    local.writeUInt16LE(n.length, 26);
    const central = Buffer.alloc(46);
    central.writeUInt32LE(0x02014b50, 0);
    central.writeUInt16LE(20, 4);
    central.writeUInt16LE(20, 6);
    central.writeUInt32LE(crc, 16);
    central.writeUInt32LE(bytes.length, 20);
    central.writeUInt32LE(bytes.length, 24);
    central.writeUInt16LE(n.length, 28);
    central.writeUInt32LE(offset, 42);
    parts.push(local, n, bytes);
    directory.push(central, n);
    offset += local.length + n.length + bytes.length;
  }
  const size = directory.reduce((s, b) => s + b.length, 0);
  const end = Buffer.alloc(22);
  end.writeUInt32LE(0x06054b50, 0);
  end.writeUInt16LE(entries.length, 8);
  end.writeUInt16LE(entries.length, 10);
  end.writeUInt32LE(size, 12);
  end.writeUInt32LE(offset, 16);
  return Buffer.concat([...parts, ...directory, end]);
}

function pkg(name) {
  const file = path.join(source, name);
  const collection = fs.readFileSync(path.join(source, 'profiles/User 1/collection.rivo2'));
  fs.writeFileSync(file, zip([['collection.rivo2', collection], ['media', Buffer.from('{}')]]));
  return file;
}

async function uploadAndWait(file) {
  await page.locator('input[data-upload="import"]').setInputFiles(file);
  await expectAlert(page, '', 'Import complete.');
}

before(async () => {
  data = tempDir();
  source = tempDir();
  generate(source, { notes: 60, decks: 6 });
  ({ rivo, chrome, page } = await launched(data));
});

after(async () => {
  await chrome.close();
  await rivo.stop();
  fs.rmSync(data, { recursive: true, force: true });
  fs.rmSync(source, { recursive: true, force: true });
});

test('a shared deck uploaded merges, and its decks show on the list', async () => {
  assert.deepEqual(await rowIds(page), ['Default']);
  await uploadAndWait(pkg('shared deck.rpkg'));
  await screenshots(page, 'import-complete');
  await answer(page, 'OK');
  await page.locator('#content .row[data-id="Subject 1"]').waitFor();
  const decks = await rowIds(page);
  assert.ok(decks.includes('Subject 1') && decks.length >= 3, decks.join());
  await screenshots(page, 'import-decks');
  assert.deepEqual(fs.readdirSync(path.join(data, 'tmp')), [], 'the upload is gone');
});

test('collection.rpkg replaces the collection after the confirmation', async () => {
  await page.locator('input[data-upload="import"]').setInputFiles(pkg('collection.rpkg'));
  await expectAlert(page, 'Confirm Replace', 'This action cannot be undone.');
  await screenshots(page, 'import-confirm-replace');
  await answer(page, 'Replace');
  await expectAlert(page, '', 'Import complete.');
  await answer(page, 'OK');
  await noSpinner(page);
  assert.ok((await rowIds(page)).includes('Subject 1'));
});

test('a bad package is refused, and both alerts are shown', async () => {
  const bad = path.join(source, 'bad.rpkg');
  fs.writeFileSync(bad, 'not a zip at all');
  const before = await rowIds(page);
  await uploadAndWait(bad);
  await answer(page, 'OK');
  await expectAlert(page, '', 'Error importing: The file is not a Rivo package');
  await answer(page, 'OK');
  assert.deepEqual(await rowIds(page), before);
  assert.deepEqual(page.errors, []);
});
