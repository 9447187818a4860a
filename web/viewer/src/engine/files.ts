import type { SrcHeader } from 'kelsrc-loader/core';
import type { FileState, Problem, Source } from './api.js';
import type { FileScene } from './fileScene.js';
import { load, problemOf } from './loading.js';

export class OpenFile implements FileState {
  state: FileState['state'] = 'loading';
  problem: Problem | null = null;
  header: SrcHeader | null = null;
  loadedBytes = 0;
  /** What is drawn of it; null until the header has arrived. */
  scene: FileScene | null = null;
  readonly controller = new AbortController();

  constructor(
    readonly id: number,
    readonly source: Source,
  ) {}

  get name(): string {
    return this.source.name;
  }
  get totalBytes(): number {
    return this.header?.totalBytes ?? 0;
  }
  get loadedMeshes(): number {
    return this.scene?.loaded ?? 0;
  }
}

export interface FileListener {
  sceneFor(header: SrcHeader): FileScene;
  /** A file was added, has gone, or has changed its state. */
  changed(): void;
  /** More bytes or meshes are there. */
  progressed(): void;
  /** A file's header has come, or something that changes its bounds. */
  bounded(file: OpenFile): void;
  /** A mesh's geometry is there. */
  arrived(file: OpenFile, mesh: number): void;
}

/** The open files, and what is being loaded. */
export class Files {
  /** Another list whenever a file comes or goes. */
  list: readonly OpenFile[] = [];
  private lastId = 0;

  constructor(private readonly listener: FileListener) {}

  find(id: number): OpenFile | undefined {
    return this.list.find((file) => file.id === id);
  }

  open(source: Source): number {
    const file = new OpenFile(++this.lastId, source);
    this.list = [...this.list, file];
    this.listener.changed();
    void this.load(file);
    return file.id;
  }

  abort(id: number): void {
    const file = this.find(id);
    if (file?.state !== 'loading') return;
    file.state = 'aborted';
    file.controller.abort();
    this.listener.changed();
  }

  close(id: number): void {
    const file = this.find(id);
    if (!file) return;
    if (file.state === 'loading') file.state = 'aborted';
    file.controller.abort();
    file.scene?.dispose();
    this.list = this.list.filter((other) => other !== file);
    this.listener.changed();
  }

  private async load(file: OpenFile): Promise<void> {
    const { listener } = this;
    const { signal } = file.controller;
    try {
      await load(
        file.source,
        {
          header: (header) => {
            if (signal.aborted) return;
            file.scene = listener.sceneFor(header);
            file.header = header;
            listener.bounded(file);
            listener.changed();
          },
          mesh: (arrays) => {
            if (signal.aborted) return;
            if (file.scene!.add(arrays)) listener.bounded(file);
            listener.arrived(file, arrays.mesh.index);
            listener.progressed();
          },
          bytes: (loaded) => {
            file.loadedBytes = loaded;
            listener.progressed();
          },
        },
        signal,
      );
      if (file.state !== 'loading') return;
      file.state = 'complete';
    } catch (error) {
      if (file.state !== 'loading') return; // it was ended on purpose
      file.state = 'failed';
      file.problem = problemOf(error, file.name);
    }
    listener.progressed();
    listener.changed();
  }
}
