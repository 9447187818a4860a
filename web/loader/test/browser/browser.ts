import { build } from 'esbuild';
import { mkdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import type { Page } from 'playwright-core';
import { startChromium, type Chromium } from '../../../support/chromium.js';
import { WEB } from '../../../support/paths.js';
import { sendRanges, serve, type Handler, type TestServer } from '../../../support/server.js';
import { fixture, type ReadBack } from '../support.js';
import type { PageApi } from './page.js';

const PICTURES = process.env.KELSRC_WEB_PICTURES;

/** Debian's Chromium with a page that holds the loader, under the strictest policy that lets a script run at all. */
export class Browser {
  private constructor(
    private readonly chromium: Chromium,
    readonly server: TestServer,
    readonly page: Page,
    /** What the page complained about. */
    readonly complaints: string[],
    private readonly files: Map<string, Handler>,
  ) {}

  static async start(): Promise<Browser> {
    const bundle = await build({
      entryPoints: [join(WEB, 'loader/test/browser/page.ts')],
      bundle: true,
      format: 'esm',
      write: false,
      logLevel: 'silent',
    });
    const script = bundle.outputFiles[0]!.contents;
    const files = new Map<string, Handler>();
    const server = await serve((request, response) => {
      const name = decodeURIComponent(request.url!.slice(1));
      const policy = "default-src 'none'; script-src 'self'; connect-src 'self'";
      if (name === '') {
        response.writeHead(200, { 'Content-Type': 'text/html', 'Content-Security-Policy': policy });
        response.end('<!doctype html><title>kelsrc-loader</title><body><script type="module" src="/page.js"></script>');
      } else if (name === 'page.js') {
        response.writeHead(200, { 'Content-Type': 'text/javascript' }).end(script);
      } else if (files.has(name)) {
        files.get(name)!(request, response);
      } else if (name.endsWith('.src')) {
        sendRanges(fixture(name.slice(0, -4)))(request, response);
      } else {
        response.writeHead(404).end();
      }
    });
    const chromium = await startChromium();
    const { page } = chromium;
    await page.goto(server.url);
    await page.waitForFunction(() => 'kel' in window);
    return new Browser(chromium, server, page, chromium.complaints, files);
  }

  /** Serves more than the fixtures. */
  put(name: string, handler: Handler | Uint8Array): string {
    this.files.set(name, typeof handler === 'function' ? handler : sendRanges(handler));
    return `/${name}`;
  }

  call<K extends keyof PageApi>(
    name: K,
    ...parameters: Parameters<PageApi[K]>
  ): Promise<Awaited<ReturnType<PageApi[K]>>> {
    return this.page.evaluate(
      ([key, list]) => (window as never as { kel: Record<string, (...list: unknown[]) => unknown> }).kel[key]!(...list),
      [name, parameters] as [string, unknown[]],
    ) as Promise<Awaited<ReturnType<PageApi[K]>>>;
  }

  /** Keeps a picture for people to look at, where KELSRC_WEB_PICTURES says so. */
  keep(name: string, dataUrl: string): void {
    if (!PICTURES) return;
    mkdirSync(PICTURES, { recursive: true });
    writeFileSync(join(PICTURES, `${name}.png`), Buffer.from(dataUrl.split(',')[1]!, 'base64'));
  }

  async stop(): Promise<void> {
    await this.chromium.close();
    await this.server.close();
  }
}

/** Plain glTF of what the C++ reader reads in a file: floats and 32-bit indices, one node per mesh. */
export function glbOf({ meshes }: ReadBack): { bytes: Uint8Array; ids: string[] } {
  const blocks: Uint8Array[] = [];
  const json = {
    asset: { version: '2.0' },
    scene: 0,
    scenes: [{ nodes: [] as number[] }],
    nodes: [] as object[],
    meshes: [] as object[],
    accessors: [] as object[],
    bufferViews: [] as object[],
    buffers: [] as object[],
  };
  let size = 0;
  const accessor = (array: Float32Array | Uint32Array, type: string, components: number) => {
    const bytes = new Uint8Array(array.buffer);
    json.bufferViews.push({ buffer: 0, byteOffset: size, byteLength: bytes.length });
    blocks.push(bytes);
    size += bytes.length;
    const count = array.length / components;
    const limits: { min?: number[]; max?: number[] } = {};
    if (type === 'VEC3') {
      limits.min = [Infinity, Infinity, Infinity];
      limits.max = [-Infinity, -Infinity, -Infinity];
      array.forEach((x, i) => {
        limits.min![i % 3] = Math.min(limits.min![i % 3]!, x);
        limits.max![i % 3] = Math.max(limits.max![i % 3]!, x);
      });
    }
    json.accessors.push({
      bufferView: json.bufferViews.length - 1,
      componentType: array instanceof Float32Array ? 5126 : 5125,
      count,
      type,
      ...limits,
    });
    return json.accessors.length - 1;
  };
  const names: Record<string, [string, string, number]> = {
    position: ['POSITION', 'VEC3', 3],
    normal: ['NORMAL', 'VEC3', 3],
    texcoord: ['TEXCOORD_0', 'VEC2', 2],
    color: ['COLOR_0', 'VEC3', 3],
  };
  for (const { indices, attributes } of meshes) {
    const used: Record<string, number> = {};
    for (const [name, values] of Object.entries(attributes)) {
      const [semantic, type, components] = names[name]!;
      used[semantic] = accessor(new Float32Array(values), type, components);
    }
    const primitive = { attributes: used, indices: accessor(new Uint32Array(indices!), 'SCALAR', 1) };
    json.meshes.push({ primitives: [primitive] });
    json.nodes.push({ mesh: json.meshes.length - 1 });
    json.scenes[0]!.nodes.push(json.nodes.length - 1);
  }
  json.buffers.push({ byteLength: size });
  let text = JSON.stringify(json);
  while (text.length % 4) text += ' ';
  const head = Buffer.alloc(20);
  head.write('glTF', 0);
  head.writeUInt32LE(2, 4);
  head.writeUInt32LE(28 + text.length + size, 8);
  head.writeUInt32LE(text.length, 12);
  head.write('JSON', 16);
  const middle = Buffer.alloc(8);
  middle.writeUInt32LE(size, 0);
  middle.write('BIN\0', 4);
  return { bytes: Buffer.concat([head, Buffer.from(text), middle, ...blocks]), ids: meshes.map((mesh) => mesh.id) };
}
