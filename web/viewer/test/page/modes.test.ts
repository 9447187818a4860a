import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { gzipSync } from 'node:zlib';
import type { Page } from 'playwright-core';
import { afterAll, beforeAll, expect, test } from 'vitest';
import { named, squares } from './models.js';
import { PageServer, VIEWER } from './pageServer.js';

const AXE = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

type Violations = { id: string; nodes: { target: unknown; failureSummary?: string }[] }[];

/** What axe has to say against the page: a line per fault. */
async function faults(page: Page): Promise<string[]> {
  // evaluate() is the debugger's, and stands above the page's policy.
  await page.evaluate(AXE);
  const violations = (await page.evaluate(
    async () => (await (window as never as { axe: { run(): Promise<{ violations: unknown }> } }).axe.run()).violations,
  )) as Violations;
  return violations.flatMap(({ id, nodes }) =>
    nodes.map((node) => `${id} ${String(node.target)} ${node.failureSummary}`),
  );
}

const MODEL = squares([
  { meta: { name: 'Bracket', source: { unit: 1, file: 'plant.step' } }, material: 'red' },
  { meta: { name: 'Nut' } },
  {},
]);

test.each(['light', 'dark'] as const)(
  'has no faults for assistive tools on a desktop, %s',
  async (colorScheme) => {
    const browser = await PageServer.start({ colorScheme });
    try {
      const { page } = browser;
      await browser.open();
      expect(await faults(page)).toEqual([]);

      await browser.open({ 'a.src': MODEL, 'b.src': named('x') });
      await page.locator('.mesh-row').filter({ hasText: 'Bracket' }).click();
      await page.keyboard.press('c');
      await page.keyboard.press('h');
      await page.getByRole('button', { name: 'Display' }).click();
      expect(await faults(page)).toEqual([]);

      await page.getByRole('tab', { name: 'Files' }).click();
      await page.keyboard.press('m');
      expect(await faults(page)).toEqual([]);

      await page.keyboard.press('?');
      await page.getByRole('dialog').waitFor();
      expect(await faults(page)).toEqual([]);

      await page.goto(`${browser.server.url}/?src=missing.src`);
      await page.getByRole('alert').waitFor();
      expect(await faults(page)).toEqual([]);
    } finally {
      await browser.stop();
    }
  },
  60_000,
);

test.each(['light', 'dark'] as const)(
  'works on a phone, %s',
  async (colorScheme) => {
    const viewport = { width: 390, height: 844 };
    const browser = await PageServer.start({ viewport, isMobile: true, hasTouch: true, colorScheme });
    try {
      const { page } = browser;
      await browser.open({ 'a.src': MODEL });
      const tab = (name: string) => page.locator('.sheet-tabs').getByRole('button', { name, exact: true });
      for (const name of ['Parts', 'Part', 'View', 'File']) {
        await tab(name).tap();
        await page.locator('.sheet').waitFor();
        if (name === 'Parts') await page.locator('.mesh-row').filter({ hasText: 'Bracket' }).tap();
        expect(await faults(page), name).toEqual([]);
        // Nothing to scroll sideways, and room for fingers everywhere.
        expect(await page.evaluate(() => document.documentElement.scrollWidth)).toBe(viewport.width);
        const small = await page.evaluate(() =>
          [...document.querySelectorAll('button, input:not([type=file]), summary, .row')]
            .filter((element) => element.getClientRects().length > 0 && !element.closest('dialog'))
            .map((element) => ({
              name: element.outerHTML.slice(0, 90),
              box: (element.closest('label') ?? element).getBoundingClientRect(),
            }))
            .filter(({ box }) => box.width < 43.5 || (box.height < 43.5 && box.height > 1))
            .map(({ name, box }) => `${name} ${box.width} x ${box.height}`),
        );
        expect(small, name).toEqual([]);
      }
      await page.getByRole('button', { name: 'Close', exact: true }).first().tap();
      const picture = await page.locator('canvas').boundingBox();
      expect(picture!.height).toBeGreaterThan(600);
    } finally {
      await browser.stop();
    }
  },
  60_000,
);

// ---- The page in one file

let browser: PageServer;
let folder: string;
beforeAll(async () => {
  browser = await PageServer.start();
  folder = mkdtempSync(join(tmpdir(), 'kelsrc-viewer-'));
});
afterAll(async () => {
  await browser?.stop();
  rmSync(folder, { recursive: true, force: true });
});

const elementOf = (name: string, bytes: Uint8Array, encoding = '') =>
  `<script type="application/vnd.kelsrc" data-name="${name}" data-bytes="${bytes.length}"` +
  `${encoding && ` data-encoding="${encoding}"`}>${Buffer.from(bytes).toString('base64')}</script>\n`;

/** Opens the page from disk with this in the place for files. */
async function openFromDisk(files: string): Promise<void> {
  const path = join(folder, 'model.html');
  const parts = readFileSync(VIEWER, 'utf8').split('<!--kelsrc:files-->');
  expect(parts.length).toBe(2);
  writeFileSync(path, parts.join(files));
  browser.complaints.length = 0;
  await browser.page.goto(pathToFileURL(path).href);
}

test('shows models inside the page from disk, without any network', async () => {
  const { page } = browser;
  const requests: string[] = [];
  page.on('request', (request) => requests.push(request.url()));
  const bolts = named('Bolt', 'Nut');
  const zipped = elementOf('bolts.src', gzipSync(bolts), 'gzip').replace(
    /data-bytes="\d+"/,
    `data-bytes="${bolts.length}"`,
  );
  await openFromDisk(zipped + elementOf('plain &amp; simple.src', named('Plate')));
  await page.locator('.mesh-row').filter({ hasText: 'Plate' }).waitFor();
  expect(await page.locator('.file-row .name').allInnerTexts()).toEqual(['bolts.src', 'plain & simple.src']);
  expect(requests.filter((url) => !/^(file|data|blob):/.test(url))).toEqual([]);
  expect(browser.complaints).toEqual([]);
});

test('says so when the model inside the page is damaged', async () => {
  await openFromDisk('<script type="application/vnd.kelsrc" data-name="x.src" data-encoding="gzip">AAAA</script>');
  expect(await browser.page.getByRole('alert').innerText()).toContain('x.src: The model inside this page is damaged.');
});

test('runs no script that a model brings along', async () => {
  await openFromDisk('<script>window.evil = 1</script>');
  await browser.page.getByRole('heading', { name: 'Drop SRC files here' }).waitFor();
  expect(await browser.page.evaluate(() => 'evil' in window)).toBe(false);
});

test('says so in a browser without WebGL 2', async () => {
  const { page } = browser;
  await page.addInitScript(() => {
    HTMLCanvasElement.prototype.getContext = () => null;
  });
  await page.goto(browser.server.url);
  expect(await page.getByRole('alert').innerText()).toContain('WebGL 2');
  expect(await faults(page)).toEqual([]);
});
