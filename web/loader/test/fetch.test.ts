import { gzipSync } from 'node:zlib';
import { afterEach, describe, expect, test, vi } from 'vitest';
import {
  decodeAttribute,
  fetchMeshes,
  parseSrc,
  SrcError,
  SRCLoader,
  streamSrc,
  type SrcEvent,
  type SrcSource,
} from '../src/index.js';
import { SrcAssembler } from '../src/core/SrcAssembler.js';
import { sendRanges, sendWhole, serve, type Handler, type TestServer } from '../../support/server.js';
import { fixture, srcOf, triangle, TRIANGLE_DATA } from './support.js';

let server: TestServer | null = null;
afterEach(async () => {
  await server?.close();
  server = null;
});
async function url(handler: Handler): Promise<string> {
  server = await serve(handler);
  return `${server.url}/model.src`;
}

async function refusal(action: Promise<unknown>): Promise<SrcError> {
  const error = await action.then(
    () => null,
    (reason: unknown) => reason,
  );
  expect(error).toBeInstanceOf(SrcError);
  return error as SrcError;
}

async function all(events: AsyncIterable<SrcEvent>): Promise<SrcEvent[]> {
  const list: SrcEvent[] = [];
  for await (const event of events) list.push(event);
  return list;
}

const MANY = fixture('many');
const BIG = fixture('many-cmp1');

describe('streamSrc', () => {
  test('gives the header first and then every mesh', async () => {
    const events = await all(streamSrc(await url(sendWhole(MANY))));
    expect(events.map((event) => event.type)).toEqual(['header', ...new Array(500).fill('mesh')]);
  });

  test('gives boxes and meshes before the rest has arrived', async () => {
    let more = () => {};
    const address = await url((_, response) => {
      response.write(MANY.subarray(0, MANY.length / 2));
      more = () => response.end(MANY.subarray(MANY.length / 2));
    });
    const events = streamSrc(address);
    const header = (await events.next()).value;
    expect(header!.type === 'header' && header!.header.meshes[3]!.bounds!.size[0]).toBeCloseTo(0.7, 1);
    expect((await events.next()).value!.type).toBe('mesh');
    more();
    expect((await all(events)).length).toBe(499);
  });

  test('tells true progress under compression and without a length', async () => {
    const address = await url((_, response) => {
      response.setHeader('Content-Encoding', 'gzip');
      response.write(gzipSync(MANY));
      response.end();
    });
    const progress: [number, number][] = [];
    await all(streamSrc(address, { onProgress: (...now) => progress.push(now) }));
    expect(progress[progress.length - 1]).toEqual([MANY.length, MANY.length]);
    for (const [loaded, total] of progress) expect(total === 0 || loaded <= total).toBe(true);
  });

  test('reads no further than it is asked to', async () => {
    let closed = false;
    const address = await url((_, response) => {
      response.on('close', () => (closed = true));
      response.write(MANY.subarray(0, MANY.length - 1)); // and never ends
    });
    for await (const event of streamSrc(address)) if (event.type === 'mesh') break;
    await expect.poll(() => closed).toBe(true);
  });

  test('ends when the last mesh is there, whatever follows', async () => {
    const address = await url((_, response) => {
      response.write(MANY);
      response.write('more, and no end');
    });
    expect((await all(streamSrc(address))).length).toBe(501);
  });

  test('stops with the reason of the signal', async () => {
    const controller = new AbortController();
    const address = await url((_, response) => {
      response.write(MANY.subarray(0, MANY.length / 2));
    });
    const reason = new Error('enough');
    const seen: string[] = [];
    const reading = (async () => {
      for await (const event of streamSrc(address, { signal: controller.signal })) {
        seen.push(event.type);
        if (seen.length === 2) controller.abort(reason);
      }
    })();
    await expect(reading).rejects.toBe(reason);
    expect(seen).toEqual(['header', 'mesh']);
  });

  test.each<[string, Handler]>([
    ['LOOKS_LIKE_HTML', sendWhole('<!doctype html><h1>Not found</h1>')],
    ['LOOKS_LIKE_GLB', sendWhole('glTF....')],
    ['EMPTY_FILE', sendWhole('')],
    ['CHUNK_PAST_END', sendWhole(MANY.subarray(0, MANY.length - 1))],
    ['HEADER_TRUNCATED', sendWhole(MANY.subarray(0, 100))],
    ['UNREADABLE', (_, response) => response.writeHead(404).end('no')],
    ['UNREADABLE', (request) => request.socket.destroy()],
  ])('says %s, and the address', async (code, handler) => {
    const address = await url(handler);
    const error = await refusal(all(streamSrc(address)));
    expect(error.code).toBe(code);
    expect(error.message).toContain(address);
  });

  test('a download that breaks off is unreadable', async () => {
    const address = await url((_, response) => {
      response.setHeader('Content-Length', MANY.length);
      response.write(MANY.subarray(0, 1000), () => response.destroy());
    });
    expect((await refusal(all(streamSrc(address)))).code).toBe('UNREADABLE');
  });
});

describe('whatever it comes from, a file is read alike:', () => {
  const sources: [string, () => SrcSource | Promise<SrcSource>][] = [
    ['an address', () => url(sendWhole(MANY))],
    ['a URL', async () => new URL(await url(sendWhole(MANY)))],
    ['an answer', async () => fetch(await url(sendWhole(MANY)))],
    ['a Blob', () => new Blob([MANY])],
    ['a stream', () => new Blob([MANY]).stream()],
    ['a buffer', () => MANY.slice().buffer],
    ['bytes', () => MANY],
  ];
  test.each(sources)('%s', async (_, source) => {
    const progress: [number, number][] = [];
    const events = await all(streamSrc(await source(), { onProgress: (...now) => progress.push(now) }));
    const file = parseSrc(MANY);
    expect(events[0]).toMatchObject({ type: 'header', header: { totalBytes: MANY.length } });
    const meshes = events.slice(1).map((event) => event as SrcEvent & { type: 'mesh' });
    expect(meshes.map(({ mesh }) => mesh.id)).toEqual(file.meshes.map(({ id }) => id));
    for (const { mesh, arrays } of meshes.slice(0, 20)) {
      expect(arrays.indices).toEqual(file.arrays(file.find(mesh.id)!).indices);
    }
    expect(progress.at(-1)).toEqual([MANY.length, MANY.length]);
  });

  test.each<[string, () => SrcSource | Promise<SrcSource>]>([
    ['an address', () => url(sendWhole(MANY.subarray(0, MANY.length - 1)))],
    ['a Blob', () => new Blob([MANY.subarray(0, MANY.length - 1)])],
    ['bytes', () => MANY.slice(0, -1)],
  ])('of %s that ends too early, what is there comes before the error', async (_, source) => {
    const ids: string[] = [];
    const reading = (async () => {
      for await (const event of streamSrc(await source())) if (event.type === 'mesh') ids.push(event.mesh.id);
    })();
    const error = await refusal(reading);
    expect([error.code, error.byteOffset]).toEqual(['CHUNK_PAST_END', MANY.length - 1]);
    expect(ids.length).toBe(499);
    // Places are counted from the beginning of the file.
    const [, length, from, there] = /(\d+) bytes from byte (\d+), and the file has (\d+)/.exec(error.detail)!;
    expect([Number(from) + Number(length), Number(there)]).toEqual([MANY.length, MANY.length - 1]);
  });

  test('a stream that says nothing is ended by the signal', async () => {
    const controller = new AbortController();
    let reason: unknown = null;
    const source = new ReadableStream<Uint8Array>({ cancel: (why) => void (reason = why) });
    const reading = all(streamSrc(source, { signal: controller.signal }));
    setTimeout(() => controller.abort(new Error('enough')), 20);
    await expect(reading).rejects.toThrow('enough');
    expect((reason as Error).message).toBe('enough');
  });

  test('an error names a file of the user', async () => {
    const file = new File(['solid cube'], 'cube.stl');
    expect((await refusal(all(streamSrc(file)))).message).toMatch(/^cube\.stl, byte 0: /);
  });
});

describe('what a caller does wrong is not told as the fault of the file:', () => {
  const bug = () => {
    throw new TypeError('a bug of the app');
  };
  test('onProgress that throws', async () => {
    const address = await url(sendRanges(MANY));
    for (const source of [address, MANY, new Blob([MANY])]) {
      await expect(all(streamSrc(source, { onProgress: bug }))).rejects.toThrow(TypeError);
    }
    await expect(fetchMeshes(address, ['mesh3'], { onProgress: bug })).rejects.toThrow(TypeError);
  });

  test('onProgress of a loader of three.js', async () => {
    const loading = new SRCLoader().loadAsync(await url(sendWhole(MANY)), bug);
    await expect(loading).rejects.toThrow('a bug of the app');
  });
});

describe('an answer that is no file says what to do', () => {
  test.each([
    [404, 'text/plain', '404 Not Found', 'Check the address: there is nothing at this one.'],
    [403, 'text/plain', '403 Forbidden', 'permission'],
    [401, 'text/plain', '401 Unauthorized', 'Log in'],
    [503, 'text/html; charset=utf-8', '503 Service Unavailable, with a web page', 'Try again later'],
  ])('%i', async (status, type, detail, remedy) => {
    const address = await url((_, response) => response.writeHead(status, { 'Content-Type': type }).end('no'));
    for (const action of [all(streamSrc(address)), fetchMeshes(address, ['3'])]) {
      const error = await refusal(action);
      expect(error.code).toBe('UNREADABLE');
      expect(error.message).toContain(`(the server answered ${detail})`);
      expect(error.message).toContain(remedy);
      expect(error.message).not.toContain('Check the path');
    }
  });

  test('no answer', async () => {
    const error = await refusal(all(streamSrc(await url((request) => request.socket.destroy()))));
    expect(error.message).toContain('Check the address and the connection.');
  });
});

describe('fetchMeshes', () => {
  const DEFAULT = fixture('default');

  function expectMesh(
    id: string,
    bytes: Uint8Array<ArrayBuffer>,
    meshes: Awaited<ReturnType<typeof fetchMeshes>>['meshes'],
  ) {
    const file = parseSrc(bytes);
    const expected = file.arrays(file.find(id)!);
    const found = meshes.get(id)!;
    expect(found.indices).toEqual(expected.indices);
    for (const [i, attribute] of expected.attributes.entries()) {
      expect(decodeAttribute(found.attributes[i]!)).toEqual(decodeAttribute(attribute));
    }
  }

  test('fetches the header and the wanted bytes only', async () => {
    const { header, meshes } = await fetchMeshes(await url(sendRanges(BIG)), ['250', 'nobody']);
    expect([...meshes.keys()]).toEqual(['250']);
    expectMesh('250', BIG, meshes);
    expect(header.meshes.length).toBe(500);
    expect(server!.requests.length).toBe(3); // a first piece, the rest of the header, the mesh
    const last = /bytes=(\d+)-(\d+)$/.exec(server!.requests[2]!)!;
    expect(Number(last[2]) - Number(last[1])).toBeLessThan(3000);
  });

  test('fetches runs of meshes in one request each', async () => {
    const { meshes } = await fetchMeshes(await url(sendRanges(BIG)), ['0', '1', '2', '480', '481']);
    for (const id of ['0', '1', '2', '480', '481']) expectMesh(id, BIG, meshes);
    expect(server!.requests.length).toBe(4);
  });

  test('needs one request for a small file', async () => {
    const { meshes } = await fetchMeshes(await url(sendRanges(fixture('chunks'))), ['a/b ~"é"']);
    expectMesh('a/b ~"é"', fixture('chunks'), meshes);
    expect(server!.requests.length).toBe(1);
  });

  test('copies nothing where typed arrays can lie', async () => {
    const { meshes } = await fetchMeshes(await url(sendRanges(DEFAULT)), ['1']);
    expect(meshes.get('1')!.attributes.map((a) => a.copied)).toEqual([false, false, false]);
  });

  test('falls back to one answer of a server without ranges, and reads no further than needed', async () => {
    const address = await url((_, response) => {
      response.write(BIG.subarray(0, BIG.length - 1000)); // and never ends
    });
    const { meshes } = await fetchMeshes(address, ['3']);
    expectMesh('3', BIG, meshes);
    expect(server!.requests.length).toBe(1);
  });

  test('starts over when a server knows ranges only at first', async () => {
    const ranges = sendRanges(BIG),
      whole = sendWhole(BIG);
    let count = 0;
    const { meshes } = await fetchMeshes(await url((q, r) => (++count === 1 ? ranges : whole)(q, r)), ['3']);
    expectMesh('3', BIG, meshes);
  });

  test.each<[string, Handler]>([
    ['LOOKS_LIKE_HTML', sendRanges(new TextEncoder().encode('<html></html>'))],
    ['EMPTY_FILE', sendRanges(new Uint8Array(0))],
    ['HEADER_TRUNCATED', sendRanges(BIG.subarray(0, 200_000))],
    ['CHUNK_PAST_END', sendRanges(BIG.subarray(0, BIG.length - 1))],
    ['UNREADABLE', (_, response) => response.writeHead(403).end()],
  ])('says %s', async (code, handler) => {
    expect((await refusal(fetchMeshes(await url(handler), ['499']))).code).toBe(code);
  });

  test('refuses a file that changes while it is read', async () => {
    let version = 0;
    const address = await url(sendRanges(BIG, () => `"${++version}"`));
    const error = await refusal(fetchMeshes(address, ['3']));
    expect(error.message).toContain('changed');
  });

  test('refuses an answer from another place than asked for', async () => {
    const address = await url((request, response) => {
      const from = request.headers.range!.startsWith('bytes=0-') ? 0 : 5;
      response.writeHead(206, { 'Content-Range': `bytes ${from}-${BIG.length - 1}/${BIG.length}` });
      response.end(BIG.subarray(from, from + 131072));
    });
    expect((await refusal(fetchMeshes(address, ['3']))).message).toContain('asked for byte');
  });

  test('asks for nothing behind the end of a file whose length it cannot see', async () => {
    const header = triangle() as any;
    header.bufferViews.positions.byteLength = header.bufferChunks.c1.byteLength = 3e9;
    const bytes = srcOf(header, TRIANGLE_DATA);
    const address = await url((_, response) => response.writeHead(206).end(bytes)); // a server of another origin
    const error = await refusal(fetchMeshes(address, ['m']));
    expect([error.code, error.byteOffset]).toEqual(['CHUNK_PAST_END', bytes.length]);
    expect(server!.requests).toEqual(['GET /model.src bytes=0-131071']);

    const long = bytes.slice();
    new DataView(long.buffer).setUint32(8, 3e8, true); // of the header
    const other = await serve((_, response) => response.writeHead(206).end(long));
    expect((await refusal(fetchMeshes(`${other.url}/model.src`, ['m']))).code).toBe('HEADER_TRUNCATED');
    expect(other.requests).toEqual(['GET /model.src bytes=0-131071']);
    await other.close();
  });

  test('stops with the reason of the signal', async () => {
    const controller = new AbortController();
    const address = await url(() => controller.abort(new Error('enough')));
    await expect(fetchMeshes(address, ['3'], { signal: controller.signal })).rejects.toThrow('enough');
  });
});

test('an ID that is a name of every object is only an ID', () => {
  const header = JSON.parse(
    '{"accessors":{"attributeViews":{},"indexViews":{}},"bufferChunks":{},"bufferViews":{},' +
      '"meshes":{"__proto__":{"attributes":{},"primitive":4},"toString":{"attributes":{},"primitive":0}}}',
    (_, value) => value,
  );
  const file = parseSrc(srcOf(header));
  expect(file.meshes.map((mesh) => mesh.id)).toEqual(['__proto__', 'toString']);
});

describe('work in slices', () => {
  afterEach(() => {
    vi.restoreAllMocks();
  });

  /** How many turns the event loop gets while `load` goes on, when every look at the clock tells 3 ms more. */
  async function turnsDuring(load: () => Promise<unknown>): Promise<number> {
    let now = 0,
      turns = 0,
      ended = false;
    vi.spyOn(performance, 'now').mockImplementation(() => (now += 3));
    const count = () => {
      ++turns;
      if (!ended) setImmediate(count);
    };
    setImmediate(count);
    await load();
    ended = true;
    return turns;
  }

  test('the event loop gets its turns while a stream is read', async () => {
    const address = await url(sendWhole(MANY));
    expect(await turnsDuring(() => all(streamSrc(address)))).toBeGreaterThan(150);
  });

  test('and while a loader of three.js loads', async () => {
    const address = await url(sendWhole(MANY));
    expect(await turnsDuring(() => new SRCLoader().loadAsync(address))).toBeGreaterThan(150);
  });
});

describe('a header that comes in pieces', () => {
  const headerEnd = 12 + new DataView(BIG.buffer).getUint32(8, true);

  test.each([1000, 65536, 100_000, headerEnd - 1, headerEnd, headerEnd + 1])('of %i bytes is read', (size) => {
    const assembler = new SrcAssembler();
    let steps = 0;
    for (let at = 0; at < BIG.length; at += size) {
      for (const work = assembler.pushing(BIG.slice(at, at + size)); !work.next().done; ++steps);
      expect(assembler.header !== null).toBe(at + size >= headerEnd);
    }
    assembler.end();
    expect(steps).toBeGreaterThan(3);
    expect(assembler.header!.meshes.map((mesh) => mesh.id)).toEqual(parseSrc(BIG).meshes.map((mesh) => mesh.id));
  });

  test('is read though one of its entries is longer than a piece', () => {
    const header: any = triangle();
    header.meshes.m.meta = { name: 'x'.repeat(300_000) };
    header.meshes.n = { ...header.meshes.m };
    const bytes = srcOf(header, TRIANGLE_DATA);
    const assembler = new SrcAssembler();
    for (let at = 0; at < bytes.length; at += 70_000) assembler.push(bytes.slice(at, at + 70_000));
    expect(assembler.header!.meshes.map((mesh) => [mesh.id, String(mesh.metadata).length])).toEqual([
      ['m', 15],
      ['n', 15],
    ]);
    expect((assembler.header!.meshes[1]!.metadata as { name: string }).name.length).toBe(300_000);
  });
});
