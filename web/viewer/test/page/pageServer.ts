import { existsSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import type { BrowserContextOptions, Page } from 'playwright-core';
import { startChromium, type Chromium } from '../../../support/chromium.js';
import { WEB } from '../../../support/paths.js';
import { sendRanges, serve, type Handler, type TestServer } from '../../../support/server.js';

const DIST = join(WEB, 'viewer/dist');
export const VIEWER = join(DIST, 'viewer.html');

export const POLICY =
  "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src *";

const TYPES: Record<string, string> = { html: 'text/html', js: 'text/javascript', css: 'text/css' };

/** The built page on a server with the strictest policy that it promises to work under, in a browser. */
export class PageServer {
  private readonly files = new Map<string, Handler>();

  private constructor(
    private readonly chromium: Chromium,
    readonly server: TestServer,
  ) {}

  static async start(options: BrowserContextOptions = {}): Promise<PageServer> {
    if (!existsSync(VIEWER)) throw new Error('the viewer is not built: npm run build -w kelsrc-viewer');
    let answer: Handler = () => {};
    const server = await serve((request, response) => answer(request, response));
    const chromium = await startChromium({ viewport: { width: 1280, height: 800 }, ...options });
    chromium.page.setDefaultTimeout(15_000);
    const page = new PageServer(chromium, server);
    answer = page.answer;
    return page;
  }

  private readonly answer: Handler = (request, response) => {
    const name = decodeURIComponent(new URL(request.url!, 'http://here').pathname.slice(1)) || 'index.html';
    const given = this.files.get(name);
    if (given) {
      given(request, response);
      return;
    }
    const path = join(DIST, name);
    if (!['index.html', 'viewer.js', 'viewer.css'].includes(name) || !existsSync(path)) {
      response.writeHead(404).end('<!doctype html><title>Not found</title>');
      return;
    }
    response.setHeader('Content-Security-Policy', POLICY);
    response.setHeader('Content-Type', TYPES[name.split('.').pop()!]!);
    response.end(readFileSync(path));
  };

  get page(): Page {
    return this.chromium.page;
  }

  /** What the page complained about. */
  get complaints(): string[] {
    return this.chromium.complaints;
  }

  put(name: string, content: Handler | Uint8Array): void {
    this.files.set(name, typeof content === 'function' ? content : sendRanges(content));
  }

  /** Opens the page on files of this server, as if for the first time, and waits until they are there. */
  async open(files: Record<string, Handler | Uint8Array> = {}, hash = ''): Promise<void> {
    this.complaints.length = 0;
    for (const [name, content] of Object.entries(files)) this.put(name, content);
    await this.page.goto('about:blank');
    const query = Object.keys(files)
      .map((name) => `src=${encodeURIComponent(name)}`)
      .join('&');
    await this.page.goto(`${this.server.url}/?${query}${hash}`);
    if (query) await this.page.locator('#mesh-list .mesh-row, .sheet-tabs').first().waitFor();
  }

  async stop(): Promise<void> {
    await this.chromium.close();
    await this.server.close();
  }
}

/** Drops files on the page, as a hand with a mouse would. */
export async function drop(page: Page, files: { name: string; bytes: Uint8Array }[]): Promise<void> {
  const data = files.map(({ name, bytes }) => ({ name, base64: Buffer.from(bytes).toString('base64') }));
  const transfer = await page.evaluateHandle((files) => {
    const transfer = new DataTransfer();
    for (const { name, base64 } of files) {
      transfer.items.add(new File([Uint8Array.from(atob(base64), (c) => c.charCodeAt(0))], name));
    }
    return transfer;
  }, data);
  for (const type of ['dragenter', 'dragover', 'drop'])
    await page.dispatchEvent('body', type, { dataTransfer: transfer });
}
