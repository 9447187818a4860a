import { build } from 'esbuild';
import { join } from 'node:path';
import type { Page } from 'playwright-core';
import { startChromium, type Chromium } from '../../../support/chromium.js';
import { WEB } from '../../../support/paths.js';
import { sendRanges, serve, type Handler, type TestServer } from '../../../support/server.js';
import type { Kel } from './page.js';

export const WIDTH = 800,
  HEIGHT = 600;
/** Of the camera, from top to bottom. */
const FIELD_OF_VIEW = (35 * Math.PI) / 180;

/** A page with nothing but an engine on a canvas. */
export class EnginePage {
  private readonly files = new Map<string, Handler>();

  private constructor(
    private readonly chromium: Chromium,
    private readonly server: TestServer,
    private readonly script: () => Uint8Array,
  ) {}

  static async start(): Promise<EnginePage> {
    const bundle = await build({
      entryPoints: [join(WEB, 'viewer/test/engine/page.ts')],
      bundle: true,
      format: 'esm',
      write: false,
      logLevel: 'silent',
    });
    let answer: Handler = (_, response) => response.writeHead(404).end();
    const server = await serve((request, response) => answer(request, response));
    const chromium = await startChromium({ viewport: { width: WIDTH, height: HEIGHT } });
    const page = new EnginePage(chromium, server, () => bundle.outputFiles[0]!.contents);
    answer = page.answer;
    await page.reload();
    return page;
  }

  get page(): Page {
    return this.chromium.page;
  }

  /** What the page complained about. */
  get complaints(): string[] {
    return this.chromium.complaints;
  }

  /** A fresh page. */
  async reload(): Promise<void> {
    await this.page.goto(this.server.url);
    await this.page.waitForFunction(() => 'kel' in window);
  }

  /** Nothing of what was before. A fresh page would take longer, for its WebGL context. */
  async reset(): Promise<void> {
    this.files.clear();
    await this.do((kel) => kel.reset());
    await this.resize(WIDTH, HEIGHT);
    await this.settle();
  }

  /** Makes the canvas another size than that of the page, until the next reset. */
  async resize(width: number, height: number): Promise<void> {
    await this.do(({ canvas }, [w, h]) => Object.assign(canvas.style, { width: `${w}px`, height: `${h}px` }) && 0, [
      width,
      height,
    ]);
    await this.until(({ canvas }, [w, h]) => canvas.width === w && canvas.height === h, [width, height]);
  }

  /** Serves a file and gives its address. */
  put(name: string, content: Handler | Uint8Array): string {
    this.files.set(name, typeof content === 'function' ? content : sendRanges(content));
    return `/${name}`;
  }

  /** Runs in the page. */
  do<A, R>(action: (kel: Kel, argument: A) => R, argument?: A): Promise<Awaited<R>> {
    return this.page.evaluate(`(${String(action)})(window.kel, ${JSON.stringify(argument ?? null)})`) as Promise<
      Awaited<R>
    >;
  }

  /** Waits until something holds in the page. */
  async until<A>(condition: (kel: Kel, argument: A) => boolean, argument?: A): Promise<void> {
    await this.page.waitForFunction(`(${String(condition)})(window.kel, ${JSON.stringify(argument ?? null)})`);
  }

  /** Opens a file, waits for its end and for the picture, and gives its ID. */
  async open(content: Uint8Array, name = 'model.src'): Promise<number> {
    const url = this.put(name, content);
    const id = await this.do((kel, [name, url]) => kel.engine.open({ name: name!, url: url! }), [name, url]);
    await this.until(({ engine }, id) => engine.files.find((file) => file.id === id)!.state !== 'loading', id);
    await this.settle();
    return id;
  }

  /** Waits until all is drawn and told. */
  async settle(): Promise<void> {
    await this.until(({ engine }) => engine.settled);
  }

  /** Looks from +z at a place in the plane z = 0, or below it, from a distance. */
  async lookAt(x: number, y: number, distance: number, z = 0): Promise<void> {
    await this.do(
      (kel, [x, y, z, distance]) =>
        kel.engine.setCamera({ position: [x!, y!, z! + distance!], target: [x!, y!, z!], up: [0, 1, 0] }, false),
      [x, y, z, distance],
    );
    await this.settle();
  }

  /** Where a point is on the page, seen as `lookAt` does it. */
  place(x: number, y: number, distance: number): [number, number] {
    const pixels = HEIGHT / 2 / Math.tan(FIELD_OF_VIEW / 2) / distance;
    return [WIDTH / 2 + x * pixels, HEIGHT / 2 - y * pixels];
  }

  async click(x: number, y: number): Promise<void> {
    await this.page.mouse.click(x, y);
    await this.settle();
  }

  /** The color of the picture at places of the page. */
  colors(places: [number, number][]): Promise<number[][]> {
    return this.do(async (kel, places) => {
      const bitmap = await createImageBitmap(await kel.engine.picture());
      const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d', { willReadFrequently: true })!;
      context.drawImage(bitmap, 0, 0);
      const scale = bitmap.width / kel.canvas.clientWidth;
      const { data } = context.getImageData(0, 0, bitmap.width, bitmap.height);
      return places.map(([x, y]) => {
        const at = (Math.floor(y * scale) * bitmap.width + Math.floor(x * scale)) * 4;
        return [...data.slice(at, at + 3)];
      });
    }, places);
  }

  /** How many pixels of the picture are not like its corner. */
  covered(): Promise<number> {
    return this.do(async (kel) => {
      const bitmap = await createImageBitmap(await kel.engine.picture());
      const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d', { willReadFrequently: true })!;
      context.drawImage(bitmap, 0, 0);
      const { data } = context.getImageData(0, 0, bitmap.width, bitmap.height);
      let count = 0;
      for (let i = 0; i < data.length; i += 4) {
        if (data[i] !== data[0] || data[i + 1] !== data[1] || data[i + 2] !== data[2]) ++count;
      }
      return count;
    });
  }

  /** The values of all events of a name so far. */
  events(name: string): Promise<unknown[]> {
    return this.do((kel, name) => kel.events.filter(([other]) => other === name).map(([, value]) => value), name);
  }

  async stop(): Promise<void> {
    await this.chromium.close();
    await this.server.close();
  }

  private readonly answer: Handler = (request, response) => {
    const name = decodeURIComponent(request.url!.slice(1));
    if (name === '') {
      response.writeHead(200, { 'Content-Type': 'text/html' });
      const icon = '<link rel="icon" href="data:,">';
      response.end(`<!doctype html>${icon}<canvas></canvas><script type="module" src="/page.js"></script>`);
    } else if (name === 'page.js') {
      response.writeHead(200, { 'Content-Type': 'text/javascript' }).end(this.script());
    } else if (this.files.has(name)) {
      this.files.get(name)!(request, response);
    } else {
      response.writeHead(404).end();
    }
  };
}
