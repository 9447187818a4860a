// One Chromium, one server, and a fresh page for every load.

import { build } from 'esbuild';
import { existsSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import type { ServerResponse } from 'node:http';
import type { CDPSession, Page } from 'playwright-core';
import { startChromium, type Chromium } from '../support/chromium.js';
import { WEB } from '../support/paths.js';
import { serve, type TestServer } from '../support/server.js';
import type { Bench, Shown, Task, Times } from './page.js';
import { longestTasks, type TraceEvent } from './trace.js';

/** How the server sends. */
export interface Link {
  /** Bytes per second; null for as fast as it goes. */
  bytesPerSecond: number | null;
  gzip: boolean;
}

export interface ServedFile {
  bytes: Buffer;
  gzip: Buffer;
}

export interface Measured extends Times {
  longestTask: number;
  longestTaskWithoutDrawing: number;
  /** Bytes of the JavaScript heap and of array buffers that the page holds because of the file. */
  heap: number;
  shown: Shown;
}

const CONTENT_TYPES: Record<string, string> = { js: 'text/javascript', wasm: 'application/wasm' };
const DRACO = join(WEB, 'node_modules/three/examples/jsm/libs/draco/gltf');

export class Measurements {
  link: Link = { bytesPerSecond: null, gzip: false };
  files = new Map<string, ServedFile>();

  private constructor(
    private readonly chromium: Chromium,
    private readonly script: Uint8Array,
  ) {}
  private server!: TestServer;

  static async start(): Promise<Measurements> {
    const bundle = await build({
      entryPoints: [join(WEB, 'bench/page.ts')],
      bundle: true,
      minify: true,
      format: 'esm',
      target: 'es2022',
      write: false,
      logLevel: 'silent',
    });
    const chromium = await startChromium();
    const measurements = new Measurements(chromium, bundle.outputFiles[0]!.contents);
    measurements.server = await serve((request, response) => measurements.answer(request.url!.slice(1), response));
    return measurements;
  }

  async stop(): Promise<void> {
    await this.chromium.close();
    await this.server.close();
  }

  /** The version of the browser. */
  async browser(): Promise<string> {
    const session = await this.chromium.context.newCDPSession(this.chromium.page);
    const { product } = await session.send('Browser.getVersion');
    await session.detach();
    return product.replace('/', ' ').replace('Headless', '');
  }

  private answer(name: string, response: ServerResponse): void {
    response.setHeader('Cache-Control', 'no-store');
    const file = this.files.get(name);
    if (file) {
      this.send(file, response);
    } else if (name === '') {
      response.setHeader('Content-Type', 'text/html');
      response.end('<!doctype html><link rel="icon" href="data:,"><title>load</title><body><script type="module" src="/page.js"></script>');
    } else if (name === 'page.js') {
      response.setHeader('Content-Type', 'text/javascript');
      response.end(this.script);
    } else if (/^draco\/\w+\.(js|wasm)$/.test(name) && existsSync(join(DRACO, name.slice(6)))) {
      response.setHeader('Content-Type', CONTENT_TYPES[name.split('.').pop()!]!);
      response.end(readFileSync(join(DRACO, name.slice(6))));
    } else {
      response.writeHead(404).end();
    }
  }

  private send(file: ServedFile, response: ServerResponse): void {
    const { bytesPerSecond, gzip } = this.link;
    const bytes = gzip ? file.gzip : file.bytes;
    if (gzip) response.setHeader('Content-Encoding', 'gzip');
    response.setHeader('Content-Length', bytes.length);
    response.setHeader('Content-Type', 'application/octet-stream');
    if (bytesPerSecond === null) {
      response.end(bytes);
      return;
    }
    const start = performance.now();
    let sent = 0;
    const timer = setInterval(() => {
      const due = Math.min(bytes.length, Math.floor(((performance.now() - start) / 1000) * bytesPerSecond));
      if (due > sent) response.write(bytes.subarray(sent, due));
      sent = due;
      if (sent < bytes.length && !response.destroyed) return;
      clearInterval(timer);
      response.end();
    }, 4);
  }

  async measure(task: Task): Promise<Measured> {
    const page = await this.chromium.context.newPage();
    try {
      await page.goto(this.server.url);
      await page.waitForFunction(() => 'bench' in window);
      const session = await this.chromium.context.newCDPSession(page);
      await page.evaluate((t) => (window as never as { bench: Bench }).bench.prepare(t), task);
      const before = await heapOf(session);
      const trace = await traceOf(session, TRACED);
      const times = await page.evaluate((t) => (window as never as { bench: Bench }).bench.run(t), task);
      const tasks = longestTasks(await trace());
      const heap = (await heapOf(session)) - before;
      const shown = await page.evaluate(() => (window as never as { bench: Bench }).bench.shown());
      const complaints = this.chromium.complaints.splice(0);
      if (complaints.length > 0) throw new Error(complaints.join('\n'));
      return { ...times, longestTask: tasks.all, longestTaskWithoutDrawing: tasks.withoutDrawing, heap, shown };
    } finally {
      await page.close();
    }
  }

  /** The last frame as a PNG, and what a profiler saw on the way, for people to look at. */
  async look(task: Task): Promise<{ png: Buffer; profile: unknown }> {
    const page: Page = await this.chromium.context.newPage();
    try {
      await page.goto(this.server.url);
      await page.waitForFunction(() => 'bench' in window);
      const session = await this.chromium.context.newCDPSession(page);
      await page.evaluate((t) => (window as never as { bench: Bench }).bench.prepare(t), task);
      await session.send('Profiler.enable');
      await session.send('Profiler.setSamplingInterval', { interval: 200 });
      await session.send('Profiler.start');
      await page.evaluate((t) => (window as never as { bench: Bench }).bench.run(t), task);
      const { profile } = await session.send('Profiler.stop');
      const url = await page.evaluate(() => (window as never as { bench: Bench }).bench.picture());
      return { png: Buffer.from(url.split(',')[1]!, 'base64'), profile };
    } finally {
      await page.close();
    }
  }
}

/** The category "toplevel" looks right for tasks, but leaves out many of them, such as those that parse GLB files. */
const TRACED = ['disabled-by-default-devtools.timeline', 'blink.user_timing'];

/** Bytes in use after a collection: V8's heap and the memory of array buffers, of the page without its workers. */
async function heapOf(session: CDPSession): Promise<number> {
  for (let i = 0; i < 2; ++i) await session.send('HeapProfiler.collectGarbage');
  const usage = await session.send('Runtime.getHeapUsage');
  return usage.usedSize + usage.backingStorageSize;
}

/** Starts a trace; the function that it gives ends it. */
async function traceOf(session: CDPSession, includedCategories: string[]): Promise<() => Promise<TraceEvent[]>> {
  const events: TraceEvent[] = [];
  session.on('Tracing.dataCollected', ({ value }) => events.push(...(value as unknown as TraceEvent[])));
  await session.send('Tracing.start', {
    transferMode: 'ReportEvents',
    traceConfig: { recordMode: 'recordUntilFull', includedCategories, excludedCategories: ['*'] },
  });
  return async () => {
    const complete = new Promise((resolve) => session.once('Tracing.tracingComplete', resolve));
    await session.send('Tracing.end');
    await complete;
    return events;
  };
}
