import { readFileSync } from 'node:fs';
import type { ServerResponse } from 'node:http';
import { afterAll, beforeAll, expect, test } from 'vitest';
import { SRC_CODES } from 'kelsrc-loader/core';
import { named, squares } from './models.js';
import { drop, PageServer } from './pageServer.js';

let browser: PageServer;
beforeAll(async () => {
  browser = await PageServer.start();
});
afterAll(() => browser?.stop());

const rows = () => browser.page.locator('#mesh-list [role=row]');
const row = (name: string) => rows().filter({ hasText: name });
const hiddenRows = () => browser.page.locator('#mesh-list .row.hidden');
const notice = () => browser.page.locator('.notice');
const details = () => browser.page.locator('#details');

const BOLTS = named('Bolt M8', 'Bolt M10', 'Nut', 'Plate', 'Washer');
const openBolts = (hash?: string) => browser.open({ 'bolts.src': BOLTS }, hash);

test('invites to drop files while nothing is open', async () => {
  await browser.open();
  const { page } = browser;
  expect(await page.getByRole('heading', { name: 'Drop SRC files here' }).isVisible()).toBe(true);
  expect(await page.getByRole('button', { name: 'Open files' }).count()).toBeGreaterThan(0);
});

test('opens the file of the address, and nothing breaks its policy', async () => {
  await openBolts();
  expect(await rows().count()).toBe(5);
  expect(await browser.page.title()).toBe('bolts.src – kelSrc viewer');
  expect(browser.complaints).toEqual([]);
});

test('opens several files of the address, each below its name', async () => {
  await browser.open({ 'a.src': named('one'), 'b.src': named('two', 'three') });
  await row('three').waitFor();
  expect(await rows().count()).toBe(5);
  await row('a.src').click();
  await row('one').waitFor({ state: 'detached' });
  expect(await row('a.src').getAttribute('aria-expanded')).toBe('false');
});

test('opens files that are dropped, on what is open too', async () => {
  await browser.open();
  const { page } = browser;
  await drop(page, [{ name: 'dropped.src', bytes: named('first') }]);
  await row('first').waitFor();
  await drop(page, [{ name: 'second.src', bytes: named('second') }]);
  await row('second.src').waitFor();
});

test('opens files that are chosen', async () => {
  await browser.open();
  const { page } = browser;
  const chooser = page.waitForEvent('filechooser');
  await page.locator('.drop-zone').getByRole('button', { name: 'Open files' }).click();
  await (
    await chooser
  ).setFiles([
    { name: 'x.src', mimeType: '', buffer: Buffer.from(named('left')) },
    { name: 'y.src', mimeType: '', buffer: Buffer.from(named('right')) },
  ]);
  await row('right').waitFor();
  expect(await row('left').isVisible()).toBe(true);
});

test('says what is wrong with each file that is none', async () => {
  await browser.open();
  const { page } = browser;
  await drop(page, [
    { name: 'page.src', bytes: Buffer.from('<!doctype html><title>x</title>') },
    { name: 'model.glb', bytes: Buffer.from('glTF\x02\0\0\0\0\0\0\0') },
    { name: 'good.src', bytes: named('good') },
  ]);
  await page.getByRole('alert').nth(1).waitFor();
  const texts = (await page.getByRole('alert').allTextContents()).join('\n');
  expect(texts).toContain('page.src');
  expect(texts).toContain(SRC_CODES.LOOKS_LIKE_HTML.sentence.slice(0, -1));
  expect(texts).toContain(SRC_CODES.LOOKS_LIKE_GLB.sentence.slice(0, -1));
  await page.getByRole('button', { name: 'Dismiss page.src' }).click();
  await page.getByText('page.src', { exact: false }).first().waitFor({ state: 'detached' });
  expect(await page.getByRole('alert').count()).toBe(1);
});

test('says so when the server has no such file, and tries again', async () => {
  const { page } = browser;
  browser.put('late.src', (_, response) => response.writeHead(404).end());
  await page.goto(`${browser.server.url}/?src=late.src`);
  await page.getByRole('alert').waitFor();
  browser.put('late.src', BOLTS);
  await page.getByRole('button', { name: 'Try again' }).click();
  await row('Nut').waitFor();
  expect(await page.getByRole('alert').count()).toBe(0);
});

test('tells how much of a slow file is there, and stops it', async () => {
  const bytes = squares(Array.from({ length: 1000 }, () => ({})));
  const header = bytes.length - 60 * 1000;
  const half = header + 60 * 500;
  let waiting: ServerResponse | null = null;
  const { page } = browser;
  browser.put('slow.src', (_, response) => {
    response.write(bytes.subarray(0, half));
    waiting = response;
  });
  await page.goto(`${browser.server.url}/?src=slow.src`);
  const bar = page.getByRole('progressbar');
  await page.getByText('500 of 1,000 meshes').waitFor();
  expect(await bar.getAttribute('aria-valuenow')).toBe(String(Math.floor((half / bytes.length) * 100)));
  expect(await page.locator('.bar-text').textContent()).toBe(
    `${(half / 1000).toFixed(1)} of ${(bytes.length / 1000).toFixed(1)} kB, 500 of 1,000 meshes`,
  );
  await page.getByRole('button', { name: 'Stop loading slow.src' }).click();
  await page.getByText('Stopped:').waitFor();
  waiting!.end();
});

test('searches by name and ID, and counts', async () => {
  await openBolts();
  const { page } = browser;
  await page.keyboard.press('/');
  await page.keyboard.type('bolt');
  await page.getByText('2 parts found').waitFor();
  expect(await rows().count()).toBe(2);
  await page.locator('#search').fill('mesh3');
  await row('Plate').waitFor();
  await page.getByText('1 part found').waitFor();
  await page.keyboard.press('Escape');
  await row('Washer').waitFor();
});

test('types letters of a search without obeying them', async () => {
  await openBolts();
  await browser.page.keyboard.press('/');
  await browser.page.keyboard.type('what?');
  await browser.page.getByText('0 parts found').waitFor();
  expect(await browser.page.locator('dialog[open]').count()).toBe(0);
  expect(await browser.page.getByRole('button', { name: 'Wireframe' }).getAttribute('aria-pressed')).toBe('false');
});

test('hides and isolates all that was found', async () => {
  await openBolts();
  const { page } = browser;
  await page.locator('#search').fill('bolt');
  await page.getByText('2 parts found').waitFor();
  await page.getByRole('button', { name: 'Hide all found' }).click();
  await page.getByText('2 parts found, 2 hidden').waitFor();
  await page.getByRole('button', { name: 'Isolate all found' }).click();
  await page.getByText('2 parts found, 3 hidden').waitFor();
  await page.getByRole('button', { name: 'Clear the search' }).click();
  await page.getByRole('button', { name: 'Show all' }).click();
  await hiddenRows().first().waitFor({ state: 'detached' });
});

test('hides a part in its row', async () => {
  await openBolts();
  await row('Nut').getByRole('button', { name: 'Hide Nut' }).click();
  await row('Nut').getByRole('button', { name: 'Show Nut' }).waitFor();
  expect(await hiddenRows().count()).toBe(1);
});

test('shows what is known of a part', async () => {
  const part = { meta: { name: 'Bracket', origin: { plant: 'North', rev: 7 } }, material: 'red' };
  await browser.open({ 'part.src': squares([part]) });
  await row('Bracket').click();
  const text = await details().innerText();
  for (const known of [
    'Bracket',
    'mesh0',
    'part.src',
    'Triangles\n2',
    'Vertices\n4',
    'Area\n1',
    '3 × 32-bit floats',
    'North',
    'plain',
  ]) {
    expect(text).toContain(known);
  }
  const swatch = details().locator('.swatch').first();
  expect(await swatch.evaluate((element) => getComputedStyle(element).backgroundColor)).toBe('rgb(255, 0, 0)');
});

test('tells where a part lies on the map', async () => {
  await browser.open({ 'part.src': squares([{ meta: { name: 'Field', origin: [500123.25, 5400321.5, 12] } }]) });
  await row('Field').click();
  expect(await details().innerText()).toContain(
    'Bounds\n500,123.25, 5,400,321.5, 12 → 500,124.25, 5,400,322.5, 12',
  );
});

test('hides, isolates and shows with keys after a click in the list', async () => {
  await openBolts();
  const { page } = browser;
  await row('Nut').click();
  await page.keyboard.press('h');
  expect(await hiddenRows().count()).toBe(1);
  await page.keyboard.press('Shift+H');
  expect(await hiddenRows().count()).toBe(0);
  await page.keyboard.press('i');
  expect(await hiddenRows().count()).toBe(4);
  await page.keyboard.press('i');
  expect(await hiddenRows().count()).toBe(0);
  await page.keyboard.press('Escape');
  await page.getByText('No part is selected.').waitFor();
});

test('walks through the list with the keyboard alone', async () => {
  await openBolts();
  const { page } = browser;
  const selected = () => page.locator('#mesh-list [aria-selected=true]');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter'); // "Skip to the list of parts"
  await page.locator('#mesh-list:focus').waitFor();
  await page.keyboard.press('End');
  expect(await selected().innerText()).toContain('Washer');
  await page.keyboard.press('Home');
  await page.keyboard.press('ArrowDown');
  expect(await selected().innerText()).toContain('Bolt M10');
  await page.keyboard.press('p');
  expect(await selected().innerText()).toContain('Plate');
  await page.keyboard.press(' ');
  await hiddenRows().first().waitFor();
  const active = await page.locator('#mesh-list').getAttribute('aria-activedescendant');
  expect(await page.locator(`#${active}`).innerText()).toContain('Plate');
});

test('lists 20,000 meshes by drawing few', async () => {
  const many = squares(Array.from({ length: 20_000 }, (_, i) => ({ meta: { name: `part ${i}` } })));
  await browser.open({ 'many.src': many });
  const { page } = browser;
  expect(await page.locator('#mesh-list').getAttribute('aria-rowcount')).toBe('20000');
  expect(await rows().count()).toBeLessThan(80);
  await page.locator('#mesh-list').focus();
  await page.keyboard.press('End');
  await row('part 19999').waitFor();
  expect(await row('part 19999').getAttribute('aria-posinset')).toBe('20000');
  await page.locator('#search').fill('part 1234');
  // 1234, 11234 and 12340 to 12349.
  await page.getByText('12 parts found').waitFor();
  await page.getByRole('button', { name: 'Isolate all found' }).click();
  await page.waitForURL(/show=0\.1234_11234_12340-12349/);
}, 60_000);

test('switches display, clipping and measuring, with keys and buttons alike', async () => {
  await openBolts();
  const { page } = browser;
  for (const [key, name] of [
    ['w', 'Wireframe'],
    ['b', 'Boxes of all parts'],
    ['c', 'Clipping plane'],
    ['m', 'Measure'],
  ] as const) {
    const button = page.getByRole('toolbar').getByRole('button', { name });
    await page.keyboard.press(key);
    await page.locator(`[role=toolbar] [aria-label="${name}"][aria-pressed=true]`).waitFor();
    await button.click();
    await page.locator(`[role=toolbar] [aria-label="${name}"][aria-pressed=false]`).waitFor();
  }
  await page.keyboard.press('c');
  await page.getByRole('radio', { name: 'Y', exact: true }).check();
  await page.getByLabel('Place of the plane').fill('0.25');
  await page.getByRole('button', { name: 'Show the other side' }).click();
  await page.waitForURL(/clip=y,0\.25,flipped/);
});

test('restores the view of a link', async () => {
  await openBolts('#camera=20,5,20,3,0,0,0,1,0&surface=plain&hide=0.1-2&select=0.3&measure=0,0,0,1,0,0');
  const { page } = browser;
  await hiddenRows().nth(1).waitFor();
  expect(await hiddenRows().allInnerTexts()).toEqual([
    expect.stringContaining('Bolt M10'),
    expect.stringContaining('Nut'),
  ]);
  expect(await details().innerText()).toContain('Plate');
  expect(await page.locator('.distance').innerText()).toBe('1');
  await page.keyboard.press('w');
  await page.waitForURL(/wireframe=1/);
  const view = new URLSearchParams(new URL(page.url()).hash.slice(1));
  const camera = view.get('camera')!.split(',').map(Number);
  [20, 5, 20, 3, 0, 0, 0, 1, 0].forEach((n, i) => expect(camera[i]).toBeCloseTo(n, 4));
  expect([view.get('hide'), view.get('select'), view.get('surface')]).toEqual(['0.1-2', '0.3', 'plain']);
});

test('shows a file all the same when its link is garbage', async () => {
  await openBolts('#camera=1,x&hide=0.9-1&show=~~&select=no&clip=q&measure=1,2&%%%');
  expect(await rows().count()).toBe(5);
  expect(await hiddenRows().count()).toBe(0);
  expect(browser.complaints).toEqual([]);
});

test('says what the bytes of a file are for', async () => {
  await openBolts();
  const { page } = browser;
  await page.getByRole('tab', { name: 'File' }).click();
  const line = (purpose: string) => page.getByRole('row', { name: purpose }).innerText();
  // Five squares: 6 indices of 2 bytes, 4 positions of 12 bytes each.
  expect(await line('indices')).toContain('60 bytes');
  expect(await line('positions')).toContain('240 bytes');
  expect(await line('header')).toContain('%');
});

test('saves a picture', async () => {
  await openBolts();
  const download = browser.page.waitForEvent('download');
  await browser.page.keyboard.press('p');
  const file = await download;
  expect(file.suggestedFilename()).toBe('bolts.png');
  expect(
    readFileSync(await file.path())
      .subarray(1, 4)
      .toString(),
  ).toBe('PNG');
});

test('copies the link and says so', async () => {
  await openBolts();
  await browser.page.context().grantPermissions(['clipboard-read', 'clipboard-write']);
  await browser.page.waitForURL(/camera=/);
  await browser.page.keyboard.press('l');
  await notice().getByText('Link to this view copied.').waitFor();
  expect(await browser.page.evaluate(() => navigator.clipboard.readText())).toBe(browser.page.url());
});

test('shows its keys in a dialog that keeps the focus, and can switch them off', async () => {
  await openBolts();
  const { page } = browser;
  await page.keyboard.press('?');
  const dialog = page.getByRole('dialog', { name: 'Keys and gestures' });
  await dialog.waitFor();
  // Past its last element the focus goes to the browser, never to the page behind.
  for (let i = 0; i < 4; ++i) await page.keyboard.press('Tab');
  expect(await page.evaluate(() => document.activeElement?.closest('.page > :not(dialog)') ?? null)).toBeNull();
  await dialog.getByRole('switch').click();
  await page.keyboard.press('Escape');
  await dialog.waitFor({ state: 'hidden' });
  await page.keyboard.press('w');
  expect(await page.getByRole('toolbar').getByRole('button', { name: 'Wireframe' }).getAttribute('aria-pressed')).toBe(
    'false',
  );
  await page.getByRole('button', { name: 'Keys and gestures' }).click();
  await dialog.getByRole('switch').click();
  await page.keyboard.press('Escape');
});

test('remembers the theme', async () => {
  await openBolts();
  const { page } = browser;
  const theme = () => page.evaluate(() => document.documentElement.dataset.theme);
  expect(await theme()).toBe('light');
  await page.getByRole('button', { name: /^Theme/ }).click();
  await page.getByRole('button', { name: 'Theme: light' }).click();
  expect(await theme()).toBe('dark');
  await openBolts();
  expect(await theme()).toBe('dark');
  await page.getByRole('button', { name: 'Theme: dark' }).click();
});

test('describes the picture for those who do not see it', async () => {
  await openBolts();
  await row('Nut').click();
  await browser.page.keyboard.press('h');
  const picture = browser.page.getByRole('img', { name: /3D view of bolts.src: 5 meshes, 1 hidden, Nut selected/ });
  await picture.waitFor();
});
