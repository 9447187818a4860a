import type { MeshArrays } from './arrays.js';
import type { Bytes } from './bytes.js';
import type { ReadLimits } from './limits.js';
import type { SrcHeader, SrcMesh } from './model.js';
import { Slices } from './slices.js';
import { SrcAssembler } from './SrcAssembler.js';
import { SrcError } from './SrcError.js';
import { SrcFile } from './SrcFile.js';

/** Where a file can come from: an address, an answer of a server, a file of the user's, bytes as they come or in memory. */
export type SrcSource =
  | string
  | URL
  | Response
  | Blob
  | ReadableStream<Uint8Array>
  | ArrayBuffer
  | Bytes;

export interface FetchOptions {
  signal?: AbortSignal | undefined;
  headers?: Record<string, string> | undefined;
  credentials?: RequestCredentials | undefined;
  limits?: Partial<ReadLimits> | undefined;
  /** Bytes of the file so far, and all of them; the total is 0 until the header has come. */
  onProgress?: ((loaded: number, total: number) => void) | undefined;
}

export type SrcEvent =
  { type: 'header'; header: SrcHeader } | { type: 'mesh'; header: SrcHeader; mesh: SrcMesh; arrays: MeshArrays };

/** A file of which the header is there, and which hands out the meshes that have come since. */
export interface Arrived {
  readonly header: SrcHeader | null;
  take(): MeshArrays | null;
}

/** What a source is called in messages: its address or name; "" when it has none. */
export function nameOf(source: SrcSource): string {
  if (typeof source === 'string') return source;
  if (source instanceof URL) return source.href;
  if (source instanceof Response) return source.url;
  return source instanceof Blob ? ((source as Partial<File>).name ?? '') : '';
}

export async function request(url: string, options: FetchOptions, range?: string): Promise<Response> {
  const { credentials, signal } = options;
  const headers = { ...options.headers, ...(range && { Range: range }) };
  return orUnreadable(
    () => fetch(url, { headers, ...(credentials && { credentials }), ...(signal && { signal }) }),
    options,
    () =>
      isForeign(url)
        ? 'Check the connection, and that the server lets pages of other origins read its files (CORS).'
        : 'Check the address and the connection.',
  );
}

/** What is downloaded or read from disk. It may fail for reasons that are not the file's. */
async function orUnreadable<T>(action: () => Promise<T>, { signal }: FetchOptions, remedy: () => string): Promise<T> {
  try {
    return await action();
  } catch (error) {
    if (signal?.aborted) throw signal.reason;
    if (error instanceof SrcError || (error instanceof DOMException && error.name === 'AbortError')) throw error;
    const detail = error instanceof Error ? error.message : String(error);
    throw new SrcError('UNREADABLE', { detail, cause: error, remedy: remedy() });
  }
}

/** The next bytes of a body. */
export function readFrom(
  reader: ReadableStreamDefaultReader<Uint8Array>,
  options: FetchOptions,
): Promise<ReadableStreamReadResult<Uint8Array>> {
  return orUnreadable(() => reader.read(), options, () => 'Load it again; it broke off.');
}

function isForeign(url: string): boolean {
  const here = (globalThis as { location?: { href: string; origin: string } }).location;
  try {
    return here !== undefined && new URL(url, here.href).origin !== here.origin;
  } catch {
    return false; // no address at all
  }
}

/** An answer that is no file. */
export async function refused(response: Response): Promise<SrcError> {
  await response.body?.cancel();
  const { status, statusText, headers } = response;
  const isPage = /html/.test(headers.get('Content-Type') ?? '') ? ', with a web page' : '';
  const detail = `${`the server answered ${status} ${statusText}`.trim()}${isPage}`;
  return new SrcError('UNREADABLE', { detail, remedy: remedyFor(status) });
}

function remedyFor(status: number): string {
  if (status === 404 || status === 410) return 'Check the address: there is nothing at this one.';
  if (status === 401 || status === 403) return 'Log in, or ask whoever runs the server for permission.';
  return status >= 500 ? 'Try again later; the server has a problem.' : 'Check the address.';
}

/** The same error with the source's name, where it is the file's. */
export function named(error: unknown, name: string): unknown {
  return error instanceof SrcError && name !== '' ? error.in(name) : error;
}

/**
 * A file as it arrives: each time that there is more to take from it, its header first. Pulled by the caller: who does
 * not ask, does not read on. The page gets a turn every few milliseconds; `slices` are the caller's own, so that the
 * work on meshes counts in them, too.
 */
export async function* arrivals(
  source: SrcSource,
  options: FetchOptions,
  slices: Slices,
  assembler = new SrcAssembler(options.limits),
): AsyncGenerator<Arrived, void, undefined> {
  options.signal?.throwIfAborted();
  if (source instanceof ArrayBuffer || source instanceof Uint8Array) {
    yield* inMemory(source, options, slices);
    return;
  }
  let stream: ReadableStream<Uint8Array> | null;
  if (source instanceof ReadableStream) {
    stream = source;
  } else if (source instanceof Blob) {
    stream = source.stream();
  } else {
    const response = source instanceof Response ? source : await request(String(source), options);
    if (!response.ok) throw await refused(response);
    stream = response.body;
  }
  yield* assembled(stream, assembler, options, slices);
}

async function* inMemory(
  source: ArrayBuffer | Bytes,
  { signal, limits, onProgress }: FetchOptions,
  slices: Slices,
): AsyncGenerator<Arrived, void, undefined> {
  await slices.pause(); // errors come later, whatever they are
  const opening = SrcFile.opening(source, limits);
  let step = opening.next();
  for (; !step.done; step = opening.next()) {
    if (slices.isOver) await slices.pause();
    signal?.throwIfAborted();
  }
  const file = step.value;
  const { totalBytes } = file.header;
  onProgress?.(Math.min(source.byteLength, totalBytes), totalBytes);
  yield file;
  signal?.throwIfAborted();
  file.check();
}

async function* assembled(
  stream: ReadableStream<Uint8Array> | null,
  assembler: SrcAssembler,
  options: FetchOptions,
  slices: Slices,
): AsyncGenerator<Arrived, void, undefined> {
  const { signal } = options;
  const reader = stream?.getReader();
  // A download knows the signal; other streams do not.
  const stop = () => void reader?.cancel(signal!.reason).catch(() => undefined);
  signal?.addEventListener('abort', stop);
  try {
    for (;;) {
      const { done, value } = reader ? await readFrom(reader, options) : { done: true, value: undefined };
      signal?.throwIfAborted();
      if (value) {
        for (const work = assembler.pushing(value); !work.next().done; ) {
          if (!slices.isOver) continue;
          await slices.pause();
          signal?.throwIfAborted();
        }
      }
      const { header, received } = assembler;
      options.onProgress?.(Math.min(received, header?.totalBytes ?? Infinity), header?.totalBytes ?? 0);
      if (header) {
        yield assembler;
        signal?.throwIfAborted();
      }
      // What has come of a file without its end has been handed out.
      if (done) assembler.end();
      if (done || assembler.complete) return;
    }
  } finally {
    signal?.removeEventListener('abort', stop);
    // Also when the caller stops asking: the rest of the file is not downloaded.
    await reader?.cancel().catch(() => undefined);
  }
}

/**
 * Reads a file while it arrives: first its header, then each mesh as soon as its bytes are there. Memory is held
 * for meshes that are not complete yet, not for the file. The page gets a turn every few milliseconds, the caller's
 * work on the meshes included. Of a file that ends too early, the meshes that are there come before the error.
 *
 * Throws SrcError, and the signal's reason when it is aborted.
 */
export async function* streamSrc(
  source: SrcSource,
  options: FetchOptions = {},
): AsyncGenerator<SrcEvent, void, undefined> {
  const slices = new Slices();
  let header: SrcHeader | null = null;
  try {
    for await (const arrived of arrivals(source, options, slices)) {
      if (!header) {
        header = arrived.header!;
        yield { type: 'header', header };
        options.signal?.throwIfAborted();
      }
      for (let arrays = arrived.take(); arrays; arrays = arrived.take()) {
        yield { type: 'mesh', header, mesh: arrays.mesh, arrays };
        if (slices.isOver) await slices.pause();
        // A caller who aborts between two meshes of one piece gets no further ones.
        options.signal?.throwIfAborted();
      }
    }
  } catch (error) {
    throw named(error, nameOf(source));
  }
}
