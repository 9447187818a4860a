import { meshArrays, type MeshArrays } from './arrays.js';
import type { Bytes } from './bytes.js';
import { headerTruncated, PREAMBLE_BYTES, readHeader, readPreamble } from './header.js';
import { exceeds, limitsFrom } from './limits.js';
import type { SrcBufferView, SrcChunk, SrcHeader } from './model.js';
import { Slices } from './slices.js';
import { arrivals, named, readFrom, refused, request, type FetchOptions } from './sources.js';
import { SrcAssembler } from './SrcAssembler.js';
import { SrcError } from './SrcError.js';
import { buffersOf, gather, lengthOf } from './SrcFile.js';

/** The first request of a partial load asks for this much: the header of some two hundred meshes. */
const FIRST_REQUEST_BYTES = 128 * 1024;
/** Two wanted runs of bytes closer than this are fetched as one: a request costs more than these bytes. */
const WORTHWHILE_GAP_BYTES = 64 * 1024;
const PARALLEL_REQUESTS = 4;

interface Part {
  bytes: Bytes;
  /** The whole file's length, when the server told it. */
  total: number | null;
  tag: string | null;
}

/** The bytes of an answer to a range request that begins where it was asked to; at most as many as asked for. */
async function partOf(response: Response, from: number, length: number, options: FetchOptions): Promise<Part> {
  const match = /^bytes (\d+)-(\d+)\/(\d+|\*)$/.exec(response.headers.get('Content-Range') ?? '');
  if (match && Number(match[1]) !== from) {
    await response.body?.cancel();
    throw new SrcError('UNREADABLE', { detail: `asked for byte ${from}, the server sent byte ${match[1]}` });
  }
  // In pieces: no memory is taken for what was only asked for.
  const pieces: Uint8Array[] = [];
  let got = 0;
  const reader = response.body?.getReader();
  try {
    while (reader && got < length) {
      const { done, value } = await readFrom(reader, options);
      if (done) break;
      pieces.push(value.subarray(0, length - got));
      got += value.length;
    }
  } finally {
    await reader?.cancel().catch(() => undefined);
  }
  // Servers of other origins may not let pages see the total. An answer that is too short is the end of the file.
  const total = match && match[3] !== '*' ? Number(match[3]) : got < length ? from + got : null;
  return { bytes: gather(pieces), total, tag: response.headers.get('ETag') };
}

/** Bytes of the data section that are fetched in one go. */
interface Run {
  start: number;
  end: number;
  bytes: Uint8Array;
}

/** The run of each chunk; chunks without bytes have none. */
function runsOf(chunks: SrcChunk[]): Map<SrcChunk, Run> {
  const runs = new Map<SrcChunk, Run>();
  const sorted = chunks.filter((chunk) => chunk.byteLength > 0).sort((a, b) => a.byteOffset - b.byteOffset);
  let last: Run | null = null;
  for (const chunk of sorted) {
    const start = chunk.byteOffset;
    const end = start + chunk.byteLength;
    if (last && start - last.end < WORTHWHILE_GAP_BYTES) last.end = Math.max(last.end, end);
    else last = { start, end, bytes: new Uint8Array(0) };
    runs.set(chunk, last);
  }
  return runs;
}

/**
 * Fetches single meshes by their IDs, with HTTP ranges: the header and then only the bytes that are needed. A
 * server that does not know ranges sends the file from its beginning; it is then read up to the last mesh that is
 * wanted. IDs that the file does not have are not in the result.
 *
 * Throws SrcError, and the signal's reason when it is aborted.
 */
export async function fetchMeshes(
  url: string,
  ids: Iterable<string>,
  options: FetchOptions = {},
): Promise<{ header: SrcHeader; meshes: Map<string, MeshArrays> }> {
  options.signal?.throwIfAborted();
  try {
    return await fetchSelected(url, new Set(ids), options);
  } catch (error) {
    throw named(error, url);
  }
}

async function fetchSelected(url: string, ids: Set<string>, options: FetchOptions) {
  const limits = limitsFrom(options.limits);
  const select = (header: SrcHeader) => header.meshes.filter((mesh) => ids.has(mesh.id));
  const meshes = new Map<string, MeshArrays>();

  const fromWhole = async (response: Response) => {
    let header: SrcHeader | null = null;
    const assembler = new SrcAssembler(limits, select);
    for await (const { header: there } of arrivals(response, options, new Slices(), assembler)) {
      header = there;
      for (let arrays = assembler.take(); arrays; arrays = assembler.take()) meshes.set(arrays.mesh.id, arrays);
    }
    return { header: header!, meshes };
  };

  const first = await request(url, options, `bytes=0-${FIRST_REQUEST_BYTES - 1}`);
  if (first.status === 416) throw new SrcError('EMPTY_FILE', { byteOffset: 0 }); // there is no first byte
  if (first.status === 200) return fromWhole(first);
  if (first.status !== 206) throw await refused(first);

  const front = await partOf(first, 0, FIRST_REQUEST_BYTES, options);
  const fetchPart = async (from: number, length: number): Promise<Part | null> => {
    const response = await request(url, options, `bytes=${from}-${from + length - 1}`);
    if (response.status !== 206) {
      if (response.status !== 416 && response.status !== 200) throw await refused(response);
      await response.body?.cancel();
      return response.status === 200 ? null : { bytes: new Uint8Array(0), total: null, tag: null };
    }
    const part = await partOf(response, from, length, options);
    if (part.tag !== null && front.tag !== null && part.tag !== front.tag) {
      throw new SrcError('UNREADABLE', { detail: 'it changed on the server while it was read; load it again' });
    }
    return part;
  };
  /** A server that knew ranges a moment ago, but not now, as behind a cache. */
  const again = async () => fromWhole(await request(url, options));

  let start = front.bytes;
  const length = readPreamble(start, true, limits)!;
  const headerEnd = PREAMBLE_BYTES + length;
  if (start.length < headerEnd) {
    if (front.total !== null && front.total < headerEnd) throw headerTruncated(length, front.total - PREAMBLE_BYTES);
    const rest = await fetchPart(start.length, headerEnd - start.length);
    if (!rest) return again();
    start = gather([start, rest.bytes]);
    if (start.length < headerEnd) throw headerTruncated(length, start.length - PREAMBLE_BYTES);
  }
  const header = readHeader(start.subarray(PREAMBLE_BYTES, headerEnd), limits);
  const wanted = select(header);
  const buffers = new Set(wanted.flatMap(buffersOf));
  const runOf = runsOf([...buffers].flatMap((view) => view.chunks));
  const runs = [...new Set(runOf.values())];
  const total = runs.reduce((sum, run) => sum + run.end - run.start, 0);
  if (total > limits.memoryBytes) throw exceeds('memoryBytes', total, limits.memoryBytes);
  if (front.total !== null) {
    for (const run of runs) {
      if (header.dataOffset + run.end <= front.total) continue;
      throw pastEnd(header, front.total, run.end);
    }
  }

  let loaded = start.length;
  const goal = headerEnd + total;
  options.onProgress?.(Math.min(loaded, goal), goal);
  let unranged = false;
  const queue = [...runs];
  const work = async () => {
    for (let run = queue.shift(); run && !unranged; run = queue.shift()) {
      const from = header.dataOffset + run.start,
        size = run.end - run.start;
      // Small files lie wholly in the first answer.
      if (from + size <= start.length) {
        run.bytes = start.subarray(from, from + size);
        continue;
      }
      const part = await fetchPart(from, size);
      if (!part) {
        unranged = true;
        return;
      }
      if (part.bytes.length < size) throw pastEnd(header, from + part.bytes.length, run.end);
      run.bytes = part.bytes;
      loaded += size;
      options.onProgress?.(Math.min(loaded, goal), goal);
    }
  };
  await Promise.all(Array.from({ length: PARALLEL_REQUESTS }, work));
  if (unranged) return again();

  // Views are copied out of the runs, so that a mesh does not keep its neighbours' bytes, and to where typed
  // arrays can lie on them.
  const views = new Map<SrcBufferView, Bytes>();
  const bytesOf = (chunk: SrcChunk): Uint8Array => {
    const run = runOf.get(chunk);
    if (!run) return new Uint8Array(0);
    const at = chunk.byteOffset - run.start;
    return run.bytes.subarray(at, at + chunk.byteLength);
  };
  let held = 0;
  for (const view of buffers) {
    held += lengthOf(view);
    if (held > limits.memoryBytes) throw exceeds('memoryBytes', held, limits.memoryBytes);
    views.set(view, gather(view.chunks.map(bytesOf)));
  }
  const source = { blockOf: (view: SrcBufferView) => views.get(view)!, startOf: () => 0 };
  for (const mesh of wanted) meshes.set(mesh.id, meshArrays(mesh, source));
  return { header, meshes };
}

function pastEnd({ dataOffset }: SrcHeader, fileEnd: number, runEnd: number): SrcError {
  const detail = `${dataOffset + runEnd} bytes are needed, ${fileEnd} are there`;
  return new SrcError('CHUNK_PAST_END', { byteOffset: fileEnd, detail });
}
