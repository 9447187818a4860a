import { SrcError, streamSrc, type MeshArrays, type SrcHeader } from 'kelsrc-loader/core';
import type { Problem, Source } from './api.js';

export interface Receiver {
  header(header: SrcHeader): void;
  mesh(arrays: MeshArrays): void;
  bytes(loaded: number): void;
}

/** Reads a file and hands out what is in it. Throws what readers throw, and the signal's reason. */
export async function load(source: Source, receiver: Receiver, signal: AbortSignal): Promise<void> {
  const from = 'url' in source ? source.url : source.bytes;
  for await (const event of streamSrc(from, { signal, onProgress: (loaded) => receiver.bytes(loaded) })) {
    if (event.type === 'header') receiver.header(event.header);
    else receiver.mesh(event.arrays);
  }
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
