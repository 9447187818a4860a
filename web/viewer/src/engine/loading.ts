import { parseSrc, SrcError, streamSrc, type MeshArrays, type SrcHeader } from 'kelsrc-loader/core';
import type { Problem, Source } from './api.js';

/** Longer than this at a stretch, and the page would not answer. */
const SLICE_MS = 10;

export interface Receiver {
  header(header: SrcHeader): void;
  mesh(arrays: MeshArrays): void;
  bytes(loaded: number): void;
}

/** Reads a file and hands out what is in it. Throws what readers throw, and the signal's reason. */
export async function load(source: Source, receiver: Receiver, signal: AbortSignal): Promise<void> {
  let until = performance.now() + SLICE_MS;
  const rest = async () => {
    if (performance.now() < until) return;
    await nextTask();
    signal.throwIfAborted();
    until = performance.now() + SLICE_MS;
  };
  if ('url' in source) {
    for await (const event of streamSrc(source.url, { signal, onProgress: (loaded) => receiver.bytes(loaded) })) {
      if (event.type === 'header') receiver.header(event.header);
      else receiver.mesh(event.arrays);
      await rest();
    }
    return;
  }
  await nextTask(); // whoever opens a file learns of its fate later, whatever it is
  signal.throwIfAborted();
  const file = parseSrc(source.bytes);
  receiver.header(file.header);
  await nextTask();
  signal.throwIfAborted();
  for (const mesh of file.meshes) {
    receiver.mesh(file.arrays(mesh));
    await rest();
  }
  receiver.bytes(file.header.totalBytes);
}

/** Lets the browser do what it has to, a picture included. Timers would wait longer, and stop in hidden pages. */
function nextTask(): Promise<void> {
  return new Promise((resolve) => {
    const { port1, port2 } = new MessageChannel();
    port1.onmessage = () => {
      port1.close();
      resolve();
    };
    port2.postMessage(null);
  });
}

export function problemOf(error: unknown, name: string): Problem {
  if (error instanceof SrcError) {
    // A server that does not answer is not the file's fault.
    const code = error.code === 'UNREADABLE' ? null : error.code;
    return { code, message: error.in(name).message };
  }
  const reason = error instanceof Error ? error.message : String(error);
  return { code: null, message: `${name}: It could not be shown (${reason}). Reload the page and open it again.` };
}
