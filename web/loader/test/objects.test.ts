import * as THREE from 'three';
import { describe, expect, test } from 'vitest';
import * as all from '../src/index.js';
import { SRCLoader, type SRCModel } from '../src/index.js';
import { sendRanges, serve } from '../../support/server.js';
import { fixture, srcOf, triangle, TRIANGLE_DATA } from './support.js';

const meshIn = (model: SRCModel, id: string) => model.objects.get(id) as THREE.Mesh;

/** Ray along -z through a place, and what it hits first. */
function hitAt(model: SRCModel, x: number, y: number): THREE.Intersection | undefined {
  model.scene.updateMatrixWorld();
  return new THREE.Raycaster(new THREE.Vector3(x, y, 10), new THREE.Vector3(0, 0, -1)).intersectObject(model.scene)[0];
}

describe('meshOf', () => {
  test('knows nothing of nothing', () => {
    const model = new SRCLoader().parse(srcOf(triangle(), TRIANGLE_DATA));
    expect([model.meshOf(undefined), model.meshOf(null)]).toEqual([null, null]);
    expect(model.meshOf({ object: new THREE.Mesh() })).toBeNull();
  });

  test.each([false, true])('does not need userData (batched: %s)', (batch) => {
    const model = new SRCLoader().setBatch(batch).parse(srcOf(triangle(), TRIANGLE_DATA));
    for (const object of model.scene.children) object.userData = {};
    expect(model.meshOf(hitAt(model, 0.5, 0.5))?.id).toBe('m');
  });
});

// As react-three-fiber does with whatever has a scene.
test.each([false, true])('a framework may assign nodes, materials and meshes to a model (batched: %s)', (batch) => {
  const model = new SRCLoader().setBatch(batch).parse(srcOf(triangle(), TRIANGLE_DATA));
  Object.assign(model, { nodes: {}, materials: {}, meshes: {} });
  expect(model.meshOf(hitAt(model, 0.5, 0.5))?.id).toBe('m');
  expect(() => model.dispose()).not.toThrow();
});

test('dispose frees what was moved into another group, and leaves what is of others', () => {
  const model = new SRCLoader().parse(fixture('uncompressed'));
  const group = new THREE.Group();
  const moved = meshIn(model, 'mesh0');
  const other = new THREE.Mesh(new THREE.BufferGeometry());
  group.add(moved);
  model.scene.add(other);
  const disposed: string[] = [];
  moved.geometry.addEventListener('dispose', () => disposed.push('moved'));
  meshIn(model, 'mesh1').geometry.addEventListener('dispose', () => disposed.push('in the scene'));
  other.geometry.addEventListener('dispose', () => disposed.push('of others'));
  model.dispose();
  expect(disposed.sort()).toEqual(['in the scene', 'moved']);
  expect(group.children).toEqual([]);
});

/** What JavaScript reads of an attribute, at most four components of each element. */
function read(attribute: THREE.BufferAttribute | THREE.InterleavedBufferAttribute, components: number): number[][] {
  const get = ['getX', 'getY', 'getZ', 'getW'] as const;
  return Array.from({ length: attribute.count }, (_, i) => get.slice(0, components).map((name) => attribute[name](i)));
}

describe.each(['position-normal', 'position', 'default', 'cmp1'])('the geometry of %s', (name) => {
  const model = new SRCLoader().parse(fixture(name));
  const { geometry } = [...model.objects.values()].find((o) => (o as THREE.Mesh).geometry?.index) as THREE.Mesh;
  const names = Object.keys(geometry.attributes).filter((key) => ['position', 'normal', 'uv', 'color'].includes(key));
  const width = (key: string) => ({ position: 3, normal: 3, uv: 2 })[key] ?? geometry.getAttribute(key).itemSize;

  test('reads alike when it is cloned', () => {
    const clone = geometry.clone();
    for (const key of names) {
      expect(read(clone.getAttribute(key), width(key))).toEqual(read(geometry.getAttribute(key), width(key)));
    }
    expect(clone.userData.srcDecoding).toBe(geometry.userData.srcDecoding);
  });

  test('reads alike when each attribute is cloned', () => {
    for (const key of names) {
      const clone = (geometry.getAttribute(key) as THREE.BufferAttribute).clone();
      expect(read(clone, width(key))).toEqual(read(geometry.getAttribute(key), width(key)));
    }
  });

  test('reads alike without its index, and is decoded by the same numbers', () => {
    const plain = geometry.toNonIndexed();
    const indices = [...geometry.index!.array];
    for (const key of names) {
      const expected = read(geometry.getAttribute(key), width(key));
      expect(read(plain.getAttribute(key), width(key))).toEqual(indices.map((i) => expected[i]));
    }
    expect(plain.index).toBeNull();
    expect(plain.userData.srcDecoding).toBe(geometry.userData.srcDecoding);
    const constants = Object.keys(geometry.attributes).filter((key) => key.startsWith('src'));
    for (const key of constants) expect(plain.getAttribute(key)).toBe(geometry.getAttribute(key));
  });
});

test('attributes whose names begin with "src" are kept in batches', () => {
  const header: any = triangle();
  header.meshes.m.attributes.srcWeight = 'a';
  const { scene } = new SRCLoader().setBatch(true).parse(srcOf(header, TRIANGLE_DATA));
  const { attributes } = (scene.children[0] as THREE.BatchedMesh).geometry;
  expect(Object.keys(attributes).sort()).toEqual(['position', 'srcWeight']);
});

describe('batches', () => {
  /** Copies of the triangle, with these materials. */
  const many = (materials: string[], change: (mesh: any, nth: number) => void = () => {}) => {
    const header: any = triangle();
    const { m } = header.meshes;
    header.materials = Object.fromEntries(
      materials.map((id) => [id, { instanceTechnique: { values: { diffuseColor: [id.length / 10, 0, 0] } } }]),
    );
    header.meshes = {};
    materials.forEach((material, i) => change((header.meshes[`mesh${i}`] = { ...m, material }), i));
    return srcOf(header, TRIANGLE_DATA);
  };

  test('show meshes as they come', async () => {
    const counts: number[] = [];
    for await (const { model } of new SRCLoader().setBatch(true).stream(many(['a', 'bb', 'a', 'a']))) {
      counts.push(model.scene.children.reduce((sum, batch) => sum + (batch as THREE.BatchedMesh).instanceCount, 0));
    }
    expect(counts).toEqual([0, 1, 2, 3, 4]);
  });

  test('have room for what the header says, and no more', () => {
    const { scene } = new SRCLoader().setBatch(true).parse(many(['a', 'bb', 'a', 'a']));
    const room = (scene.children as THREE.BatchedMesh[]).map((batch) => [
      batch.maxInstanceCount,
      batch.geometry.getAttribute('position').count,
      batch.geometry.index!.count,
    ]);
    expect(room).toEqual([
      [3, 9, 9],
      [1, 3, 3],
    ]);
  });

  test('are several where meshes are many', () => {
    const model = new SRCLoader().setBatch(true).parse(many(new Array<string>(20_000).fill('a')));
    const counts = (model.scene.children as THREE.BatchedMesh[]).map((batch) => batch.instanceCount);
    expect(counts).toEqual([16384, 3616]);
    const last = model.scene.children[1]!;
    expect(model.meshOf({ object: last, batchId: 3615 })?.id).toBe('mesh19999');
  });

  test('have room for named meshes only, when only these are loaded', async () => {
    const server = await serve(sendRanges(many(new Array<string>(100).fill('a'))));
    const { scene } = await new SRCLoader().setBatch(true).loadMeshes(`${server.url}/a.src`, ['mesh7', 'mesh30']);
    await server.close();
    expect((scene.children[0] as THREE.BatchedMesh).maxInstanceCount).toBe(2);
  });

  test('send what came between two frames as one range', async () => {
    let drawn = 0;
    for await (const { type, model } of new SRCLoader().setBatch(true).stream(many(new Array<string>(50).fill('a')))) {
      if (type === 'header') continue;
      const { geometry } = model.scene.children[0] as THREE.BatchedMesh;
      const { updateRanges } = geometry.getAttribute('position') as THREE.BufferAttribute;
      if (++drawn % 20 === 0) updateRanges.length = 0; // as a renderer does
      else expect(updateRanges).toEqual([{ start: 9 * (drawn - (drawn % 20)), count: 9 * (drawn % 20) }]);
    }
    expect(drawn).toBe(50);
  });
});

describe('setMaterial', () => {
  const dressed = (): any => {
    const header: any = triangle();
    header.techniques.t = { parameters: { shininess: { value: 0.5 } } };
    header.materials.steel = { instanceTechnique: { technique: 't', values: { diffuseColor: [1, 0, 0] } } };
    header.meshes.n = { ...header.meshes.m, material: 'steel' };
    return header;
  };

  test('is told the material, its parameters and what meshes need, once per look', () => {
    const told: unknown[] = [];
    const model = new SRCLoader()
      .setMaterial((source, parameters, needs) => {
        told.push([source?.id, parameters, needs]);
        return source ? new THREE.MeshStandardMaterial({ metalness: 1 }) : null;
      })
      .parse(srcOf(dressed(), TRIANGLE_DATA));
    const needs = { draw: 'triangles', vertexColors: false, flatShading: true };
    expect(told).toEqual([
      [undefined, {}, needs],
      ['steel', { shininess: [0.5], diffuseColor: [1, 0, 0] }, needs],
    ]);
    expect(meshIn(model, 'm').material).toBeInstanceOf(THREE.MeshPhongMaterial);
    expect(meshIn(model, 'n').material).toBeInstanceOf(THREE.MeshStandardMaterial);
  });

  test('may give one material for all, which is prepared for every kind of decoding', () => {
    const material = new THREE.MeshNormalMaterial();
    const model = new SRCLoader().setMaterial(() => material).parse(fixture('position-normal'));
    const mesh = [...model.objects.values()].find((o) => (o as THREE.Mesh).isMesh) as THREE.Mesh;
    const shader = { vertexShader: 'void main() {}' };
    (mesh.material as THREE.Material).onBeforeCompile(shader as never, null as never);
    expect(shader.vertexShader).toContain('#define normal');
  });
});

test('no two exported names differ in case only', () => {
  const names = Object.keys(all);
  expect(new Set(names.map((name) => name.toLowerCase())).size).toBe(names.length);
});
