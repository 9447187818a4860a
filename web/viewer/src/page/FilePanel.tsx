import { useMemo } from 'preact/hooks';
import type { SrcHeader } from 'kelsrc-loader/core';
import type { FileState } from '../engine/api.js';
import { ByteChart } from './ByteChart.js';
import { Button } from './controls.js';
import { useStore } from './context.js';
import { MetadataTable } from './MetadataTable.js';
import { bytesByPurpose } from './model/bytes.js';
import { bytes, count, measure } from './model/format.js';
import { metadataRows } from './model/metadata.js';
import { modeOf, precisionOf, type Precision } from './model/precision.js';
import { trianglesIn } from './model/triangles.js';

/** What is known of the files, one below the other. */
export function FilePanel() {
  const { files } = useStore();
  if (files.value.length === 0) return <p class="empty">No file is open.</p>;
  return (
    <div class="files">
      {files.value.map((file) => (
        <FileFacts key={file.id} file={file} />
      ))}
    </div>
  );
}

function FileFacts({ file }: { file: FileState }) {
  const store = useStore();
  return (
    <section class="file" aria-label={file.name}>
      <header>
        <h2>{file.name}</h2>
        <Button icon="close" label={`Close ${file.name}`} onClick={() => store.engine.close(file.id)} />
      </header>
      {file.header ? <HeaderFacts header={file.header} /> : <p class="quiet">{stateOf(file)}</p>}
    </section>
  );
}

function stateOf(file: FileState): string {
  return file.state === 'loading' ? 'Loading …' : (file.problem?.message ?? 'Loading was stopped.');
}

function HeaderFacts({ header }: { header: SrcHeader }) {
  const facts = useMemo(
    () => ({
      bytes: bytesByPurpose(header),
      triangles: trianglesIn(header),
      precision: precisionOf(header),
      mode: modeOf(header),
      rows: metadataRows(header.metadata),
    }),
    [header],
  );
  return (
    <>
      <dl class="facts">
        <dt>Size</dt>
        <dd title={`${count(header.totalBytes)} bytes`}>{bytes(header.totalBytes)}</dd>
        <dt>Meshes</dt>
        <dd>{count(header.meshes.length)}</dd>
        <dt>Triangles</dt>
        <dd>{count(facts.triangles)}</dd>
        <dt>Materials</dt>
        <dd>{count(header.materials.size)}</dd>
        {facts.mode && (
          <>
            <dt>Looks like</dt>
            <dd>{facts.mode}</dd>
          </>
        )}
      </dl>
      <h3>Bytes by purpose</h3>
      <ByteChart bytes={facts.bytes} />
      {facts.precision.length > 0 && <PrecisionTable precision={facts.precision} meshes={header.meshes.length} />}
      {facts.rows.rows.length > 0 && (
        <>
          <h3>Metadata</h3>
          <MetadataTable rows={facts.rows.rows} more={facts.rows.more} />
        </>
      )}
    </>
  );
}

function stepText(step: Precision['step']): string {
  if (!step) return '';
  const [min, max] = [measure(step.min, 3), measure(step.max, 3)];
  return min === max ? `steps of ${min}` : `steps of ${min} to ${max}`;
}

function PrecisionTable({ precision, meshes }: { precision: Precision[]; meshes: number }) {
  return (
    <>
      <h3>Precision</h3>
      <dl class="facts attributes">
        {precision.map((entry) => (
          <div key={entry.name}>
            <dt>{entry.name}</dt>
            <dd>
              {entry.encodings.join(', ')}
              {entry.step && <span class="quiet line">{stepText(entry.step)}</span>}
              {entry.meshes < meshes && <span class="quiet line">{count(entry.meshes)} meshes have it</span>}
            </dd>
          </div>
        ))}
      </dl>
    </>
  );
}
