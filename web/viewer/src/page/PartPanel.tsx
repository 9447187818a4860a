import { boundsOf, LINE_LOOP, LINE_STRIP, LINES, POINTS, type SrcMaterial, type SrcMesh } from 'kelsrc-loader/core';
import * as actions from './actions.js';
import { Button } from './controls.js';
import { useStore } from './context.js';
import { MetadataTable } from './MetadataTable.js';
import { count, measure, point } from './model/format.js';
import { cssColour, metadataRows, nameOf, parametersOf } from './model/metadata.js';
import { encodingOf } from './model/precision.js';

function primitivesOf(mesh: SrcMesh): string {
  if (mesh.drawnAs === POINTS) return 'Points';
  return [LINES, LINE_LOOP, LINE_STRIP].includes(mesh.drawnAs) ? 'Lines' : 'Triangles';
}

/** All that is known of the selected part. */
export function PartPanel() {
  const store = useStore();
  const selection = store.selection.value;
  const mesh = selection && store.meshOf(selection);
  if (!selection || !mesh) {
    return (
      <div class="empty">
        <p>No part is selected.</p>
        <p>Click one in the picture, or in the list of parts.</p>
      </div>
    );
  }
  // What the mesh counts is known when it has arrived.
  void store.progress.value;
  void store.visibility.value;
  const facts = store.engine.facts(selection);
  const visible = store.engine.isVisible(selection);
  const isolated = actions.isIsolated(store, selection);
  const name = nameOf(mesh);
  const { rows, more } = metadataRows(mesh.metadata);
  const file = store.fileOf(selection.file)!;
  const pending = file.state === 'loading' ? 'still loading' : 'not in the file';
  const kind = primitivesOf(mesh);
  const bounds = boundsOf(mesh),
    local = boundsOf(mesh, mesh.origin); // whose differences have all their digits
  return (
    <div class="part">
      <h2>{name}</h2>
      <p class="subtitle">
        <span>
          <code>{mesh.id}</code> in {file.name}
        </span>
        <Button icon="copy" label="Copy ID" onClick={() => void actions.copyId(store, selection)} />
      </p>
      <div class="actions">
        <Button icon="fit" label="Fit" shortcut="F" text onClick={() => actions.fitMesh(store, selection)} />
        <Button
          icon={visible ? 'eyeOff' : 'eye'}
          label={visible ? 'Hide' : 'Show'}
          shortcut="H"
          text
          onClick={() => actions.toggleVisible(store, selection)}
        />
        <Button
          icon="isolate"
          label={isolated ? 'Show all' : 'Isolate'}
          shortcut="I"
          text
          onClick={() => actions.isolate(store, selection)}
        />
      </div>

      <h3>Geometry</h3>
      <dl class="facts">
        {kind === 'Triangles' ? (
          <>
            <dt>Triangles</dt>
            <dd>{facts ? count(facts.triangles) : pending}</dd>
          </>
        ) : (
          <>
            <dt>Kind</dt>
            <dd>{kind}</dd>
          </>
        )}
        <dt>Vertices</dt>
        <dd>{facts ? count(facts.vertices) : pending}</dd>
        {kind === 'Triangles' && (
          <>
            <dt>Area</dt>
            <dd>{facts?.area != null ? measure(facts.area) : pending}</dd>
          </>
        )}
        {bounds && local && (
          <>
            <dt>Size</dt>
            <dd>{point(local.min.map((low, axis) => local.max[axis]! - low))}</dd>
            <dt>Bounds</dt>
            <dd>{boundsText(bounds)}</dd>
          </>
        )}
      </dl>

      {mesh.material && <Material material={mesh.material} />}

      <h3>Attributes</h3>
      <dl class="facts attributes">
        {mesh.attributes.map((attribute) => (
          <div key={attribute.name}>
            <dt>{attribute.name}</dt>
            <dd>{encodingOf(attribute)}</dd>
          </div>
        ))}
        {mesh.indices && (
          <div>
            <dt>indices</dt>
            <dd>{{ 5121: 8, 5123: 16, 5125: 32 }[mesh.indices.componentType]}-bit integers</dd>
          </div>
        )}
      </dl>

      <h3>Metadata</h3>
      {rows.length > 0 ? <MetadataTable rows={rows} more={more} /> : <p class="quiet">This part has none.</p>}
    </div>
  );
}

/** In true coordinates. */
function boundsText({ min, max }: NonNullable<ReturnType<typeof boundsOf>>): string {
  const diagonal = Math.hypot(...min.map((low, axis) => max[axis]! - low));
  return `${point(min, diagonal)} → ${point(max, diagonal)}`;
}

function Material({ material }: { material: SrcMaterial }) {
  const parameters = parametersOf(material);
  return (
    <>
      <h3>Material</h3>
      <p class="subtitle">
        <span>
          <code>{material.id}</code>
          {material.technique && <> by {material.technique.id}</>}
        </span>
      </p>
      <dl class="facts">
        {parameters.map(({ name, value, isDefault }) => {
          const colour = cssColour(value);
          const list = Array.isArray(value) ? value : [value];
          return (
            <div key={name}>
              <dt>{name}</dt>
              <dd>
                {colour && <span class="swatch" style={{ backgroundColor: colour }} />}
                {list.map((entry) => (typeof entry === 'number' ? measure(entry) : String(entry))).join(', ')}
                {isDefault && <span class="quiet"> default</span>}
              </dd>
            </div>
          );
        })}
      </dl>
    </>
  );
}
