import * as THREE from 'three';
import { afterEach, describe, expect, test } from 'vitest';
import { decodeAttribute, parseSrc, SRCLoader, DecodedMesh, SrcError, type SRCModel } from '../src/index.js';
import { sendRanges, sendWhole, serve, type Handler, type TestServer } from '../../support/server.js';
import { fixture, srcOf, triangle, TRIANGLE_DATA } from './support.js';

let server: TestServer | null = null;
afterEach(async () => {
  await server?.close();
  server = null;
});
async function serving(handler: Handler): Promise<string> {
  server = await serve(handler);
  return `${server.url}/`;
}

const UNCOMPRESSED = fixture('uncompressed');
const MANY = fixture('many');

describe('as a loader of three.js', () => {
  test('load gives the model, and progress from the header', async () => {
    const url = await serving(sendWhole(UNCOMPRESSED));
    const progress: ProgressEvent[] = [];
    const model = await new Promise<SRCModel>((resolve, reject) =>
      new SRCLoader().load(`${url}a.src`, resolve, (event) => progress.push(event), reject),
    );
    expect(model.scene.children.length).toBe(5);
    const last = progress[progress.length - 1]!;
    expect([last.lengthComputable, last.loaded, last.total]).toEqual([true, UNCOMPRESSED.length, UNCOMPRESSED.length]);
  });

  test('setPath, the manager and request headers are honoured', async () => {
    const seen: (string | undefined)[] = [];
    const url = await serving((request, response) => {
      seen.push(request.url, request.headers['x-key'] as string);
      response.end(UNCOMPRESSED);
    });
    const events: string[] = [];
    const manager = new THREE.LoadingManager(
      () => events.push('all'),
      (item) => events.push(`end ${item}`),
      (item) => events.push(`error ${item}`),
    );
    manager.onStart = (item) => events.push(`start ${item}`);
    manager.setURLModifier((address) => `${address}?v=2`);
    const loader = new SRCLoader(manager).setPath(`${url}models/`).setRequestHeader({ 'x-key': 'secret' });
    await loader.loadAsync('part.src');
    const address = `${url}models/part.src?v=2`;
    expect(seen).toEqual(['/models/part.src?v=2', 'secret']);
    expect(events).toEqual([`start ${address}`, `end ${address}`, 'all']);
  });

  test('a failure reaches onError and the manager', async () => {
    const url = await serving((_, response) => response.writeHead(404).end());
    const errors: string[] = [];
    const manager = new THREE.LoadingManager(undefined, undefined, (item) => errors.push(item));
    const error = await new SRCLoader(manager).loadAsync(`${url}no.src`).catch((reason: unknown) => reason);
    expect(error).toBeInstanceOf(SrcError);
    expect((error as SrcError).message).toContain('404');
    expect(errors).toEqual([`${url}no.src`]);
  });

  test.each([
    ['a signal', (_: SRCLoader, controller: AbortController) => controller.abort()],
    ['abort()', (loader: SRCLoader) => loader.abort()],
    ["the manager's abort()", (loader: SRCLoader) => loader.manager.abort()],
  ])('%s ends a load under way', async (_, end) => {
    const url = await serving((_, response) => response.write(MANY.subarray(0, 1000)));
    const controller = new AbortController();
    const loader = new SRCLoader(new THREE.LoadingManager());
    const loading = loader.loadAsync(`${url}a.src`, undefined, { signal: controller.signal });
    setTimeout(() => end(loader, controller), 50);
    await expect(loading).rejects.toMatchObject({ name: 'AbortError' });
  });

  test('loadMeshes gives the named meshes only', async () => {
    const url = await serving(sendRanges(MANY));
    const model = await new SRCLoader().loadMeshes(`${url}many.src`, ['mesh7', 'mesh400', 'nobody']);
    expect([...model.objects.keys()].sort()).toEqual(['mesh400', 'mesh7']);
    expect(model.header.meshes.length).toBe(500);
  });

  test('a stream gives an empty scene first, which fills', async () => {
    const url = await serving(sendWhole(UNCOMPRESSED));
    const filled: number[] = [];
    for await (const { model } of SRCLoader.stream(`${url}a.src`)) filled.push(model.scene.children.length);
    expect(filled).toEqual([0, 1, 2, 3, 4, 5]);
  });
});

describe('geometry', () => {
  test('lies on the bytes of the file, as integers', () => {
    const bytes = fixture('position-normal');
    // Moved so that the data section is aligned: then nothing needs a copy.
    const length = new DataView(bytes.buffer, bytes.byteOffset).getUint32(8, true);
    const shift = (8 - ((12 + length) % 8)) % 8;
    const block = new Uint8Array(bytes.length + shift);
    block.set(bytes, shift);
    const { objects } = new SRCLoader().parse(block.subarray(shift));
    const { geometry } = objects.get('mesh0') as THREE.Mesh;
    const position = geometry.getAttribute('position') as THREE.InterleavedBufferAttribute;
    const normal = geometry.getAttribute('normal') as THREE.InterleavedBufferAttribute;
    expect(position.data).toBe(normal.data);
    expect(position.data.array).toBeInstanceOf(Uint16Array);
    expect(position.data.array.buffer).toBe(block.buffer);
    expect(geometry.index!.array.buffer).toBe(block.buffer);
  });

  test.each(['default', 'cmp1', 'position', 'position-normal', 'bits-20', 'many-cmp1'])(
    'of %s reads in JavaScript as the values in the file',
    (name) => {
      const file = parseSrc(fixture(name));
      const { objects } = new SRCLoader().parse(fixture(name));
      for (const mesh of file.meshes.slice(0, 20)) {
        const object = objects.get(mesh.id) as THREE.Mesh;
        object.updateMatrix();
        const position = object.geometry.getAttribute('position');
        const expected = decodeAttribute(
          file.arrays(mesh).attributes.find((a) => a.combined || a.name === 'position')!,
        );
        const point = new THREE.Vector3();
        for (let i = 0; i < position.count; i += 7) {
          point.fromBufferAttribute(position, i).applyMatrix4(object.matrix);
          for (let axis = 0; axis < 3; ++axis) {
            expect(point.getComponent(axis)).toBeCloseTo(expected[i * 3 + axis]!, 5);
          }
        }
      }
    },
  );

  test('has the bounds of the header, without looking at vertices', () => {
    const { objects } = new SRCLoader().parse(fixture('cmp1'));
    const object = objects.get('0') as THREE.Mesh;
    expect(object.geometry.boundingBox).not.toBeNull();
    const box = object.geometry.boundingBox!.clone();
    object.geometry.computeBoundingBox();
    expect(box.containsBox(object.geometry.boundingBox!)).toBe(true);
  });

  test('of 65,536 vertices has 32-bit indices, since 65,535 would end a strip', () => {
    const header: any = triangle();
    const count = 65536;
    header.accessors.attributeViews.a.count = count;
    header.bufferChunks.c1.byteLength = header.bufferViews.positions.byteLength = count * 6;
    const { objects } = new SRCLoader().parse(srcOf(header, new Uint8Array(6 + count * 6)));
    expect((objects.get('m') as THREE.Mesh).geometry.index!.array).toBeInstanceOf(Uint32Array);
  });

  test('without positions is an object that shows nothing', () => {
    const header: any = triangle();
    header.meshes.m.attributes = {};
    const { objects } = new SRCLoader().parse(srcOf(header, TRIANGLE_DATA));
    expect(objects.get('m')!.type).toBe('Object3D');
  });

  test('of strips and fans is turned alike', () => {
    const { objects } = new SRCLoader().parse(fixture('primitives'));
    const normals = ['mesh4', 'mesh5', 'mesh6'].map((id) => {
      const { geometry } = objects.get(id) as THREE.Mesh;
      const [a, b, c] = [0, 1, 2].map(() => new THREE.Vector3());
      const found: number[] = [];
      for (let i = 0; i < geometry.index!.count; i += 3) {
        a!.fromBufferAttribute(geometry.attributes.position!, geometry.index!.getX(i));
        b!.fromBufferAttribute(geometry.attributes.position!, geometry.index!.getX(i + 1));
        c!.fromBufferAttribute(geometry.attributes.position!, geometry.index!.getX(i + 2));
        found.push(Math.sign(b!.sub(a!).cross(c!.sub(a!)).z));
      }
      return found;
    });
    expect(normals).toEqual([
      [1, 1],
      [1, 1],
      [1, 1],
    ]);
  });

  test('of the container writer shows points as points, though it calls them triangles', () => {
    const { objects } = new SRCLoader().parse(fixture('primitives-default'));
    expect(objects.get('0')!.type).toBe('Points');
    expect(objects.get('1')!.type).toBe('LineSegments');
  });

  test('keeps its normals when the mesh is cloned, turned and scaled', () => {
    const { objects } = new SRCLoader().parse(fixture('position'));
    const original = objects.get('mesh4') as DecodedMesh;
    for (const mesh of [original, original.clone()]) {
      mesh.rotation.set(0.3, 0.4, 0.5);
      mesh.scale.multiplyScalar(3);
      mesh.updateMatrix();
      const expected = new THREE.Matrix3().getNormalMatrix(
        new THREE.Matrix4().compose(new THREE.Vector3(), mesh.quaternion, new THREE.Vector3(3, 3, 3)),
      );
      mesh.normalMatrix.getNormalMatrix(mesh.matrix);
      mesh.normalMatrix.elements.forEach((x, i) => expect(x).toBeCloseTo(expected.elements[i]!, 9));
    }
  });
});

describe('materials', () => {
  const header: any = triangle();
  header.techniques.t = {
    parameters: { diffuseColor: { value: [0.8, 0.8, 0.8] }, transparency: { value: 0.25 }, shininess: { value: 0.2 } },
  };
  header.materials.mat = {
    instanceTechnique: { technique: 't', values: { diffuseColor: [1, 0.5, 0], shininess: [0.5] } },
  };
  header.meshes.m.material = 'mat';

  test('take their own values, and for the others the defaults of the technique', () => {
    const { objects } = new SRCLoader().parse(srcOf(header, TRIANGLE_DATA));
    const material = (objects.get('m') as THREE.Mesh).material as THREE.MeshPhongMaterial;
    expect(material.color.getHexString(THREE.SRGBColorSpace)).toBe('ff8000');
    expect([material.opacity, material.transparent, material.shininess]).toEqual([0.75, true, 64]);
    expect(material.userData).toEqual({
      technique: 't',
      parameters: { diffuseColor: [1, 0.5, 0], transparency: [0.25], shininess: [0.5] },
    });
    expect(objects.get('m')!.userData.material).toBe('mat');
  });

  test('that look the same are one', () => {
    const model = new SRCLoader().parse(fixture('many-cmp1')); // one material ID per mesh, three looks
    const materials = new Set([...model.objects.values()].map((object) => (object as THREE.Mesh).material));
    expect(materials.size).toBe(3);
  });

  test('decode as clones too', () => {
    const { objects } = new SRCLoader().parse(fixture('position-normal'));
    const material = (objects.get('mesh0') as THREE.Mesh).material as THREE.Material;
    const plain = { vertexShader: 'void main() {}', fragmentShader: '', uniforms: {} } as never;
    const compiled = (m: THREE.Material) => {
      const shader = { ...(plain as object) } as { vertexShader: string };
      m.onBeforeCompile(shader as never, null as never);
      return shader.vertexShader;
    };
    expect(compiled(material)).toContain('#define normal');
    expect(compiled(material.clone().clone())).toBe(compiled(material));
  });

  test('are flat where a mesh has no normals', () => {
    const { objects } = new SRCLoader().parse(fixture('uncompressed'));
    const flat = [...objects.values()].map((o) => ((o as THREE.Mesh).material as THREE.MeshPhongMaterial).flatShading);
    expect(flat).toEqual([false, false, false, true, false]);
  });
});

test('names that mean something to JavaScript harm nothing', () => {
  const text = JSON.stringify(triangle())
    .replace('"attributes":{', '"attributes":{"__proto__":"a","constructor":"a",')
    .replace('"techniques":{}', '"techniques":{"t":{"parameters":{"__proto__":{"value":1}}}}');
  const model = new SRCLoader().parse(srcOf(text, TRIANGLE_DATA));
  const { attributes } = (model.objects.get('m') as THREE.Mesh).geometry;
  expect(Object.getPrototypeOf(attributes)).toBe(Object.prototype);
  expect(Object.keys(attributes).sort()).toEqual(['constructor', 'position']);
});

test('names come from the metadata, IDs and metadata are verbatim', () => {
  const header: any = triangle();
  const meta = { name: 'Ünïcode / "odd" \\ .name', nested: { list: [1, null, { deep: true }] } };
  header.meshes = { 'a.b/c [0]': { ...header.meshes.m, meta } };
  header.meta = { title: 'a document' };
  const model = new SRCLoader().parse(srcOf(header, TRIANGLE_DATA));
  const object = model.objects.get('a.b/c [0]')!;
  expect([object.name, object.userData]).toEqual([meta.name, { id: 'a.b/c [0]', metadata: meta, material: '' }]);
  expect(model.scene.userData).toEqual({ metadata: { title: 'a document' } });
});

describe('what is read when it is asked for', () => {
  test('can be set by others, and goes with clones', () => {
    const mesh = new SRCLoader().parse(fixture('cmp1')).objects.get('0') as DecodedMesh;
    const clone = mesh.clone();
    expect([clone.name, clone.userData]).toEqual([mesh.name, mesh.userData]);
    expect(clone.userData).not.toBe(mesh.userData);
    mesh.name = '';
    mesh.userData = { mine: true };
    expect([mesh.name, mesh.userData]).toEqual(['', { mine: true }]);
    expect(clone.userData.id).toBe('0');
    expect([new DecodedMesh().name, new DecodedMesh().userData]).toEqual(['', {}]);
  });

  test('bounds go with clones of a geometry, and follow it when it is moved', () => {
    const { geometry } = new SRCLoader().parse(fixture('uncompressed')).objects.get('mesh0') as THREE.Mesh;
    const { min, max } = geometry.boundingBox!;
    const clone = geometry.clone().translate(1, 2, 3);
    const near = (...numbers: number[]) => numbers.map((x) => expect.closeTo(x, 5));
    expect(clone.boundingBox!.min.toArray()).toEqual(near(min.x + 1, min.y + 2, min.z + 3));
    expect(clone.boundingBox!.max.toArray()).toEqual(near(max.x + 1, max.y + 2, max.z + 3));
    expect(clone.boundingSphere!.center.toArray()).toEqual(
      clone.boundingBox!.getCenter(new THREE.Vector3()).toArray().map((x) => expect.closeTo(x, 2)),
    );
    geometry.boundingBox = null;
    expect(geometry.boundingBox).toBeNull();
  });

  test('a mesh of a JSON text keeps its data', () => {
    const mesh = new SRCLoader().parse(fixture('uncompressed')).objects.get('mesh0') as DecodedMesh;
    const { object } = mesh.toJSON() as unknown as { object: { name: string; userData: object } };
    expect([object.name, object.userData]).toEqual([mesh.name, mesh.userData]);
  });
});

describe('in batches', () => {
  test.each(['default', 'cmp1', 'position', 'position-normal', 'bits-20', 'many', 'many-cmp1'])(
    'positions and texture coordinates of %s read as the values in the file',
    (name) => {
      const file = parseSrc(fixture(name));
      const { scene } = new SRCLoader().setBatch(true).parse(fixture(name));
      let seen = 0;
      const matrix = new THREE.Matrix4();
      const point = new THREE.Vector3();
      for (const batch of scene.children as THREE.BatchedMesh[]) {
        const { meshes } = batch.userData.batch as { meshes: { id: string }[] };
        for (const [instance, { id }] of meshes.entries()) {
          const range = batch.getGeometryRangeAt(batch.getGeometryIdAt(instance))!;
          const { attributes, indices } = file.arrays(file.find(id)!);
          const { position, uv } = batch.geometry.attributes;
          const expected = decodeAttribute(attributes.find((a) => a.combined || a.name === 'position')!);
          const texcoord = attributes.find((a) => a.name === 'texcoord');
          expect([range.vertexCount * 3, range.indexCount]).toEqual([expected.length, indices!.length]);
          batch.getMatrixAt(instance, matrix);
          for (let i = 0; i < range.vertexCount; i += 11) {
            point.fromBufferAttribute(position!, range.vertexStart + i).applyMatrix4(matrix);
            for (let axis = 0; axis < 3; ++axis) {
              expect(point.getComponent(axis)).toBeCloseTo(expected[i * 3 + axis]!, 4);
            }
          }
          expect(uv !== undefined).toBe(texcoord !== undefined);
          if (texcoord) {
            const values = decodeAttribute(texcoord);
            for (let i = 0; i < range.vertexCount; i += 11) {
              expect(uv!.getX(range.vertexStart + i)).toBeCloseTo(values[2 * i]!, 5);
              expect(uv!.getY(range.vertexStart + i)).toBeCloseTo(values[2 * i + 1]!, 5);
            }
          }
          const index = batch.geometry.index!;
          expect(index.getX(range.indexStart + 5) - range.vertexStart).toBe(indices![5]);
          ++seen;
        }
      }
      expect(seen).toBe(file.meshes.length);
    },
  );

  test('nothing is kept of what went to the GPU in one piece', () => {
    const { scene } = new SRCLoader().setBatch(true).parse(MANY);
    for (const { geometry } of scene.children as THREE.BatchedMesh[]) {
      expect((geometry.index as THREE.BufferAttribute).updateRanges).toEqual([]);
      expect((geometry.attributes.position as THREE.BufferAttribute).updateRanges).toEqual([]);
    }
  });
});
