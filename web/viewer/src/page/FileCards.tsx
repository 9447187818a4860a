import type { FileState } from '../engine/api.js';
import { Button } from './controls.js';
import { useStore } from './context.js';
import { Icon } from './icons.js';
import { bytes, bytesOf, count, plural } from './model/format.js';
import { dismiss } from './sources.js';
import type { Incoming } from './store.js';

interface BarProps {
  name: string;
  loaded: number;
  total: number;
  text: string;
}

function Bar({ name, loaded, total, text }: BarProps) {
  // Before the header is there nobody knows how much will come.
  const percent = total > 0 ? Math.min(100, (loaded / total) * 100) : undefined;
  return (
    <>
      <div
        class={`bar${percent === undefined ? ' unknown' : ''}`}
        role="progressbar"
        aria-label={`Loading ${name}`}
        aria-valuemin={0}
        aria-valuemax={100}
        aria-valuenow={percent === undefined ? undefined : Math.floor(percent)}
        aria-valuetext={text}
      >
        <div class="bar-fill" style={{ transform: `scaleX(${(percent ?? 0) / 100})` }} />
      </div>
      <p class="bar-text">{text}</p>
    </>
  );
}

function progressText(file: FileState): string {
  const { header, loadedBytes, totalBytes, loadedMeshes } = file;
  if (!header) return loadedBytes > 0 ? bytes(loadedBytes) : 'Waiting for the first bytes';
  return `${bytesOf(loadedBytes, totalBytes)}, ${count(loadedMeshes)} of ${plural(header.meshes.length, 'mesh', 'meshes')}`;
}

function FileCard({ file }: { file: FileState }) {
  const store = useStore();
  const { engine } = store;
  void store.progress.value;
  if (file.state === 'complete') return null;
  if (file.state === 'loading') {
    return (
      <section class="card" aria-label={file.name}>
        <header>
          <h2>{file.name}</h2>
          <Button icon="close" label={`Stop loading ${file.name}`} onClick={() => engine.abort(file.id)} />
        </header>
        <Bar name={file.name} loaded={file.loadedBytes} total={file.totalBytes} text={progressText(file)} />
      </section>
    );
  }
  const again = () => {
    engine.close(file.id);
    engine.open(file.source);
  };
  if (file.state === 'failed') {
    const message = file.problem?.message ?? `${file.name} could not be loaded.`;
    return (
      <ProblemCard name={file.name} message={message} onClose={() => engine.close(file.id)}>
        {'url' in file.source && <Button icon="reload" label="Try again" text onClick={again} />}
      </ProblemCard>
    );
  }
  return <Stopped file={file} again={again} />;
}

function Stopped({ file, again }: { file: FileState; again(): void }) {
  const store = useStore();
  const closed = store.dismissed.value.has(file.id);
  if (closed) return null;
  return (
    <section class="card" aria-label={file.name}>
      <header>
        <h2>{file.name}</h2>
        <Button icon="close" label="Dismiss" onClick={() => store.dismiss(file.id)} />
      </header>
      <p class="bar-text">Stopped: {progressText(file)}</p>
      <Button icon="reload" label="Load again" text onClick={again} />
    </section>
  );
}

interface ProblemProps {
  name: string;
  message: string;
  onClose(): void;
  children?: preact.ComponentChildren;
}

function ProblemCard({ name, message, onClose, children }: ProblemProps) {
  return (
    <section class="card problem" aria-label={name}>
      <Icon name="warning" />
      <div>
        <p role="alert">{message}</p>
        {children}
      </div>
      <Button icon="close" label={`Dismiss ${name}`} onClick={onClose} />
    </section>
  );
}

function IncomingCard({ entry }: { entry: Incoming }) {
  const store = useStore();
  const { name, loadedBytes, totalBytes, problem } = entry;
  if (problem) return <ProblemCard name={name} message={problem} onClose={() => dismiss(store, entry)} />;
  const text = totalBytes > 0 ? bytesOf(loadedBytes, totalBytes) : bytes(loadedBytes);
  return (
    <section class="card" aria-label={name}>
      <header>
        <h2>{name}</h2>
      </header>
      <Bar name={name} loaded={loadedBytes} total={totalBytes} text={text} />
    </section>
  );
}

/** What is being loaded, and what could not be. */
export function FileCards() {
  const store = useStore();
  return (
    <div class="cards">
      {store.incoming.value.map((entry) => (
        <IncomingCard key={`incoming ${entry.name}`} entry={entry} />
      ))}
      {store.files.value.map((file) => (
        <FileCard key={file.id} file={file} />
      ))}
    </div>
  );
}
