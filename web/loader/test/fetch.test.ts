import { gzipSync } from 'node:zlib';
import { afterEach, describe, expect, test, vi } from 'vitest';
import {
  decodeAttribute,
  fetchMeshes,
  parseSrc,
  SrcAssembler,
  SrcError,
  SRCLoader,
  streamSrc,
  type SrcEvent,
} from '../src/index.js';
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
