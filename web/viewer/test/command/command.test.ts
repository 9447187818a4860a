import { execFileSync, spawn, type ChildProcess } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { afterAll, beforeAll, expect, test } from 'vitest';
import { startChromium, type Chromium } from '../../../support/chromium.js';
import { PROJECT } from '../../../support/paths.js';

// From a real model to the picture: the built command, its own server, the page that it holds.

const KELSRC = process.env.KELSRC_COMMAND ?? join(PROJECT, 'build/release/bin/kelsrc');
const ENGINE = '/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb';
const PICTURES = process.env.KELSRC_WEB_PICTURES;

let folder: string;
let chromium: Chromium;
beforeAll(async () => {
  folder = mkdtempSync(join(tmpdir(), 'kelsrc-command-'));
  chromium = await startChromium({ viewport: { width: 1280, height: 800 } });
  chromium.page.setDefaultTimeout(20_000);
}, 60_000);
afterAll(async () => {
  await chromium?.close();
  rmSync(folder, { recursive: true, force: true });
});

/** Starts `kelsrc view` and gives the address that it prints. */
async function view(...files: string[]): Promise<{ address: string; command: ChildProcess }> {
  const command = spawn(KELSRC, ['view', '--no-open', ...files], { stdio: ['ignore', 'pipe', 'inherit'] });
  let said = '';
  for await (const part of command.stdout!) {
    said += String(part);
    const line = /^(http:\/\/\S+)\n/.exec(said);
    if (line) return { address: line[1]!, command };
  }
  throw new Error(`kelsrc view ended before it printed an address: ${said}`);
}

function ended(command: ChildProcess): Promise<number | null> {
  return new Promise((resolve) => command.on('exit', resolve));
}

const status = () => chromium.page.locator('[aria-live], [role=status]').allInnerTexts();

async function selectsTheCrankcase(): Promise<void> {
  const { page } = chromium;
  await page.getByPlaceholder('Search parts').fill('body_3');
  await page.locator('#mesh-list .mesh-row', { hasText: 'body_3' }).first().click();
  await page.locator('#details').getByText('body_3').first().waitFor();
}

test('kelsrc view shows a model, with all its parts', async () => {
  const { address, command } = await view(ENGINE);
  try {
    const { page } = chromium;
    await page.goto(address);
    // In the model's own JSON, nodes use meshes of 115 primitives in all.
    await page.getByText('115 parts').waitFor();
    await selectsTheCrankcase();
    expect(chromium.complaints).toEqual([]);
    if (PICTURES) {
      await page.getByPlaceholder('Search parts').fill('');
      await page.getByPlaceholder('Search parts').blur();
      await page.mouse.move(640, 60);
      await page.waitForTimeout(1500); // the list and the picture come to rest
      mkdirSync(PICTURES, { recursive: true });
      await page.screenshot({ path: join(PICTURES, 'viewer.png') });
    }
  } finally {
    const end = ended(command);
    command.kill('SIGINT');
    expect(await end, (await status()).join()).toBe(0);
  }
}, 60_000);

test('a page of kelsrc convert --html opens from disk, without a network', async () => {
  const target = join(folder, 'engine.html');
  execFileSync(KELSRC, ['convert', ENGINE, '--html', '-o', target, '--quiet']);
  const { page, context } = chromium;
  const asked: string[] = [];
  page.on('request', (request) => asked.push(request.url()));
  await context.setOffline(true);
  try {
    await page.goto(pathToFileURL(target).href);
    await page.getByText('115 parts').waitFor();
    await selectsTheCrankcase();
    expect(asked.filter((url) => /^https?:/.test(url))).toEqual([]);
    expect(chromium.complaints).toEqual([]);
  } finally {
    await context.setOffline(false);
  }
}, 60_000);
