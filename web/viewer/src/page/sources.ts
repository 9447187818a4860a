import { embeddedFiles, type Embedded } from './embedded.js';
import type { Incoming, Store } from './store.js';

/** Where files come from: the page itself, its address, the person in front of it. */

/** "plant%20A.src?v=2" of an address is "plant A.src". */
export function nameFromAddress(url: URL): string {
  const last = url.pathname.split('/').pop() ?? '';
  try {
    return decodeURIComponent(last) || url.host || url.href;
  } catch {
    return last;
  }
}

/** The files that "?src=" names, relative to the page. */
export function addressesFrom(search: string, base: string): { name: string; url: string }[] {
  return new URLSearchParams(search)
    .getAll('src')
    .filter((text) => text.trim() !== '')
    .map((text) => {
      try {
        const url = new URL(text, base);
        return { name: nameFromAddress(url), url: url.href };
      } catch {
        return { name: text, url: text };
      }
    });
}

function update(store: Store, entry: Incoming, change: Partial<Incoming> | null): Incoming {
  const next = { ...entry, ...change };
  store.incoming.value = store.incoming.peek().flatMap((one) => (one === entry ? (change ? [next] : []) : [one]));
  return next;
}

async function openEmbedded(store: Store, file: Embedded): Promise<void> {
  let entry: Incoming = { name: file.name, loadedBytes: 0, totalBytes: file.byteLength, problem: null };
  store.incoming.value = [...store.incoming.peek(), entry];
  try {
    const bytes = await file.read((loadedBytes) => (entry = update(store, entry, { loadedBytes })));
    update(store, entry, null);
    store.engine.open({ name: file.name, bytes });
  } catch {
    const problem = `${file.name}: The model inside this page is damaged. Make the page again, or load it once more.`;
    update(store, entry, { problem });
  }
}

export async function openFiles(store: Store, files: Iterable<File>): Promise<void> {
  for (const file of files) {
    try {
      store.engine.open({ name: file.name, bytes: new Uint8Array(await file.arrayBuffer()) });
    } catch {
      const problem = `${file.name}: The browser cannot read this. Check that it is a file, not a folder, and still there.`;
      const entry = { name: file.name, loadedBytes: 0, totalBytes: 0, problem };
      store.incoming.value = [...store.incoming.peek(), entry];
    }
  }
}

export function dismiss(store: Store, entry: Incoming): void {
  store.incoming.value = store.incoming.peek().filter((one) => one !== entry);
}

/** Opens what the page was given: models inside it, or else those its address names. */
export function openGiven(store: Store): void {
  const embedded = embeddedFiles(document);
  void (async () => {
    for (const file of embedded) await openEmbedded(store, file);
  })();
  if (embedded.length > 0) return;
  for (const source of addressesFrom(location.search, document.baseURI)) store.engine.open(source);
}
