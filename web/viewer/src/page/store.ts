import { batch, computed, signal, type ReadonlySignal, type Signal } from '@preact/signals';
import type { Display, Engine, FileState, Measurement, MeshRef } from '../engine/api.js';
import { plural } from './model/format.js';
import { nameOf } from './model/metadata.js';
import { Rows } from './model/rows.js';
import { search } from './model/search.js';

/** A file on its way to the engine: one inside the page that is being unpacked, or one that could not be read. */
export interface Incoming {
  name: string;
  loadedBytes: number;
  totalBytes: number;
  /** A sentence, when it could not be read. */
  problem: string | null;
}

export type Panel = 'parts' | 'details' | 'view' | 'file';

const everyOf = new WeakMap<object, number[]>();

function everyMesh(file: FileState): readonly number[] {
  const { meshes } = file.header!;
  let list = everyOf.get(meshes);
  if (!list) everyOf.set(meshes, (list = meshes.map((_, i) => i)));
  return list;
}

/** What the page shows, as signals: the engine's state, which this follows, and the page's own. */
export class Store {
  readonly files: Signal<readonly FileState[]>;
  /** Counts the engine's news about bytes and meshes. */
  readonly progress = signal(0);
  readonly selection: Signal<MeshRef | null>;
  /** Counts changes of what is hidden. */
  readonly visibility = signal(0);
  readonly display: Signal<Display>;
  readonly measurement: Signal<Measurement | null>;
  readonly measuring = signal(false);
  readonly trouble = signal<string | null>(null);
  readonly incoming = signal<readonly Incoming[]>([]);

  /** What is typed in the search field; `query` follows when typing pauses. */
  readonly typed = signal('');
  readonly query = signal('');
  readonly folded = signal<ReadonlySet<number>>(new Set());
  /** Stopped files whose card was closed. */
  readonly dismissed = signal<ReadonlySet<number>>(new Set());
  /** The row that the keyboard is on. */
  readonly activeRow = signal(-1);
  readonly dialog = signal<'help' | null>(null);
  /** The sheet that is open on a phone. */
  readonly sheet = signal<Panel | null>(null);
  readonly details = signal<'part' | 'file'>('part');
  readonly leftOpen = signal(true);
  readonly rightOpen = signal(true);
  /** Shown for a moment, and read out. */
  readonly notice = signal<{ text: string; nth: number } | null>(null);
  /** Read out only. */
  readonly spoken = signal('');

  readonly rows: ReadonlySignal<Rows>;
  readonly hiddenCount: ReadonlySignal<number>;

  private stopListening: (() => void)[] = [];
  private typing: ReturnType<typeof setTimeout> | undefined;

  constructor(readonly engine: Engine) {
    this.files = signal(engine.files.slice());
    this.selection = signal(engine.selection);
    this.display = signal(engine.display);
    this.measurement = signal(engine.measurement);
    const { files, query, folded } = this;
    this.rows = computed(() => {
      const entries = files.value
        .filter((file) => file.header)
        .map((file) => ({
          file,
          meshes: query.value ? search(file.header!, query.value) : everyMesh(file),
          open: !folded.value.has(file.id),
        }));
      const shown = query.value ? entries.filter(({ meshes }) => meshes.length > 0) : entries;
      return new Rows(shown, entries.length > 1);
    });
    this.hiddenCount = computed(() => {
      void this.visibility.value;
      void files.value;
      return engine.hiddenCount;
    });
    this.stopListening = [
      engine.on('files', () => this.followFiles()),
      engine.on('progress', () => this.followFiles()),
      engine.on('selection', (mesh) => this.followSelection(mesh)),
      engine.on('visibility', () => void ++this.visibility.value),
      engine.on('display', (display) => (this.display.value = { ...display })),
      engine.on('measurement', (found) => (this.measurement.value = found && { ...found })),
      engine.on('trouble', (text) => (this.trouble.value = text)),
    ];
  }

  dispose(): void {
    this.stopListening.forEach((stop) => stop());
    clearTimeout(this.typing);
  }

  private stamps = '';

  private followFiles(): void {
    const files = this.engine.files;
    // States change in place; lists are made anew only when one has changed, not with every byte.
    const stamps = files.map((file) => `${file.id} ${file.state} ${file.header ? 1 : 0}`).join();
    batch(() => {
      if (stamps !== this.stamps) {
        this.stamps = stamps;
        this.announce(files);
        this.files.value = files.slice();
      }
      ++this.progress.value;
    });
  }

  private readonly told = new Map<number, string>();

  private announce(files: readonly FileState[]): void {
    const news: string[] = [];
    for (const { id, name, state, header } of files) {
      if (this.told.get(id) === state) continue;
      this.told.set(id, state);
      if (state === 'loading') news.push(`Loading ${name}.`);
      if (state === 'complete')
        news.push(`${name} is loaded: ${plural(header?.meshes.length ?? 0, 'mesh', 'meshes')}.`);
      if (state === 'aborted') news.push(`Stopped loading ${name}.`);
    }
    if (news.length > 0) this.spoken.value = news.join(' ');
  }

  private followSelection(mesh: MeshRef | null): void {
    batch(() => {
      this.selection.value = mesh && { ...mesh };
      if (mesh) {
        this.details.value = 'part';
        this.activeRow.value = this.rows.value.indexOf(mesh.file, mesh.mesh);
      }
      const found = mesh && this.meshOf(mesh);
      this.spoken.value = found ? `${nameOf(found)} is selected.` : 'Nothing is selected.';
    });
  }

  fileOf(id: number): FileState | undefined {
    return this.engine.files.find((file) => file.id === id);
  }

  meshOf(ref: MeshRef) {
    return this.fileOf(ref.file)?.header?.meshes[ref.mesh];
  }

  /** Says something for a moment. */
  say(text: string): void {
    this.notice.value = { text, nth: (this.notice.peek()?.nth ?? 0) + 1 };
  }

  /** Searching 20,000 names takes a moment, so it waits until nobody types. */
  type(text: string): void {
    this.typed.value = text;
    clearTimeout(this.typing);
    this.typing = setTimeout(() => this.search(text), 120);
  }

  search(text: string): void {
    clearTimeout(this.typing);
    batch(() => {
      this.typed.value = text;
      this.query.value = text.trim();
      const chosen = this.selection.peek();
      this.activeRow.value = chosen ? this.rows.value.indexOf(chosen.file, chosen.mesh) : -1;
    });
    if (this.query.peek()) this.spoken.value = `${plural(this.rows.peek().meshCount, 'mesh', 'meshes')} found.`;
  }

  dismiss(file: number): void {
    this.dismissed.value = new Set(this.dismissed.peek()).add(file);
  }

  fold(file: number, folded: boolean): void {
    const next = new Set(this.folded.peek());
    if (folded) next.add(file);
    else next.delete(file);
    this.folded.value = next;
  }

  /** All meshes that the list has, those of folded files included. */
  *listed(): Generator<MeshRef> {
    for (const { file, meshes } of this.rows.peek().groups) for (const mesh of meshes) yield { file: file.id, mesh };
  }

  *meshesOf(file: FileState): Generator<MeshRef> {
    for (const mesh of everyMesh(file)) yield { file: file.id, mesh };
  }
}
