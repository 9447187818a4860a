import { existsSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium, type BrowserContext, type BrowserContextOptions, type Page } from 'playwright-core';

const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';

/** Debian's Chromium without a window, drawing in software, with a profile of its own. */
export interface Chromium {
  context: BrowserContext;
  page: Page;
  /** What pages complained about on the console. */
  complaints: string[];
  close(): Promise<void>;
}

export async function startChromium(
  options: BrowserContextOptions & { args?: string[] } = {},
): Promise<Chromium> {
  if (!existsSync(CHROMIUM)) throw new Error(`${CHROMIUM} is missing: apt-get install chromium, or set CHROMIUM`);
  const { args = [], ...contextOptions } = options;
  const profile = mkdtempSync(join(tmpdir(), 'kelsrc-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    args: [
      '--no-sandbox',
      '--disable-quic',
      '--no-first-run',
      '--disable-background-networking',
      '--disable-component-update',
      '--disable-sync',
      '--use-angle=swiftshader',
      '--enable-unsafe-swiftshader',
      '--ignore-gpu-blocklist',
      ...args,
    ],
    ...contextOptions,
  });
  const complaints: string[] = [];
  const watch = (page: Page) => {
    page.on('console', (message) => {
      if (['error', 'warning'].includes(message.type())) complaints.push(message.text());
    });
    page.on('pageerror', (error) => complaints.push(String(error)));
  };
  context.on('page', watch);
  const first = context.pages()[0];
  if (first) watch(first);
  const page = first ?? (await context.newPage());
  return {
    context,
    page,
    complaints,
    close: async () => {
      await context.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}
