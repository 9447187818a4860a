// node gltf_facts.mjs FILE: what glTF-Transform reads in a glTF 2, as JSON, for the table of models
// (tests/models/model_table.py). Meshes count as often as nodes and instances place them, each kind of primitive apart;
// skins and morph targets are in their rest pose. `vertices` are those with different positions, and all in use.

import { NodeIO } from '@gltf-transform/core';
import { ALL_EXTENSIONS } from '@gltf-transform/extensions';
import draco3d from 'draco3dgltf';
import { MeshoptDecoder } from 'meshoptimizer';

const IDENTITY = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

function times(a, b) {
  const m = new Array(16).fill(0);
  for (let c = 0; c < 4; ++c)
    for (let r = 0; r < 4; ++r) for (let k = 0; k < 4; ++k) m[4 * c + r] += a[4 * k + r] * b[4 * c + k];
  return m;
}

function moved(m, p) {
  return [0, 1, 2].map((r) => m[r] * p[0] + m[4 + r] * p[1] + m[8 + r] * p[2] + m[12 + r]);
}

function placed([x, y, z], [i, j, k, w], [a, b, c]) {
  const length = Math.hypot(i, j, k, w) || 1;
  [i, j, k, w] = [i / length, j / length, k / length, w / length];
  const column = (s, ...v) => [...v.map((n) => n * s), 0];
  return [
    ...column(a, 1 - 2 * (j * j + k * k), 2 * (i * j + k * w), 2 * (i * k - j * w)),
    ...column(b, 2 * (i * j - k * w), 1 - 2 * (i * i + k * k), 2 * (j * k + i * w)),
    ...column(c, 2 * (i * k + j * w), 2 * (j * k - i * w), 1 - 2 * (i * i + j * j)),
    x, y, z, 1, // prettier-ignore
  ];
}

/** Where the instances of a node stand below it. */
function instancesOf(node) {
  const instancing = node.getExtension('EXT_mesh_gpu_instancing');
  if (!instancing) return [IDENTITY];
  const read = (name, neutral) => {
    const accessor = instancing.getAttribute(name);
    return (i) => (accessor ? accessor.getElement(i, []) : neutral);
  };
  const [t, r, s] = [read('TRANSLATION', [0, 0, 0]), read('ROTATION', [0, 0, 0, 1]), read('SCALE', [1, 1, 1])];
  return Array.from({ length: instancing.listAttributes()[0]?.getCount() ?? 0 }, (_, i) => placed(t(i), r(i), s(i)));
}

/** A function from a vertex to its place below the matrix of its use. */
function poseOf(node, primitive) {
  const positions = primitive.getAttribute('POSITION');
  const stated = node.getWeights().length > 0 ? node.getWeights() : node.getMesh().getWeights();
  const targets = primitive.listTargets().map((target) => target.getAttribute('POSITION'));
  const bent = (v) => {
    const p = positions.getElement(v, []);
    targets.forEach((target, t) => {
      if (!target || !stated[t]) return;
      const by = target.getElement(v, []);
      for (let k = 0; k < 3; ++k) p[k] += stated[t] * by[k];
    });
    return p;
  };
  const skin = node.getSkin();
  if (!skin || !primitive.getAttribute('JOINTS_0')) return { at: bent, isSkinned: false };
  const bind = skin.getInverseBindMatrices();
  const joints = skin.listJoints().map((joint, j) => times(joint.getWorldMatrix(), bind?.getElement(j, []) ?? IDENTITY));
  const sets = [0, 1].map((n) => ['JOINTS_', 'WEIGHTS_'].map((name) => primitive.getAttribute(name + n)));
  const at = (v) => {
    const p = bent(v);
    const sum = [0, 0, 0];
    let whole = 0;
    for (const [joint, weight] of sets) {
      if (!joint || !weight) continue;
      const of = joint.getElement(v, []), by = weight.getElement(v, []);
      for (let k = 0; k < 4; ++k) {
        const q = moved(joints[of[k]], p);
        for (let axis = 0; axis < 3; ++axis) sum[axis] += by[k] * q[axis];
        whole += by[k];
      }
    }
    return sum.map((n) => n / whole);
  };
  return { at, isSkinned: true };
}

const KINDS = ['points', 'lines', 'lines', 'lines', 'triangles', 'triangles', 'triangles'];
const COUNTS = [(n) => n, (n) => n >> 1, (n) => n, (n) => n - 1, (n) => Math.floor(n / 3), (n) => n - 2, (n) => n - 2];

const io = new NodeIO().registerExtensions(ALL_EXTENSIONS).registerDependencies({
  'draco3d.decoder': await draco3d.createDecoderModule(),
  'meshopt.decoder': (await MeshoptDecoder.ready, MeshoptDecoder),
});
const document = await io.read(process.argv[2]);
const scene = document.getRoot().getDefaultScene() ?? document.getRoot().listScenes()[0];
const facts = { meshes: 0, triangles: 0, lines: 0, points: 0, vertices: [0, 0], min: [1e300, 1e300, 1e300], max: [-1e300, -1e300, -1e300] }; // prettier-ignore
scene.traverse((node) => {
  if (!node.getMesh()) return;
  const uses = instancesOf(node).map((instance) => times(node.getWorldMatrix(), instance));
  for (const primitive of node.getMesh().listPrimitives()) {
    const mode = primitive.getMode();
    const used = primitive.getIndices()?.getArray() ?? Array.from({ length: primitive.getAttribute('POSITION').getCount() }, (_, v) => v); // prettier-ignore
    const { at, isSkinned } = poseOf(node, primitive);
    const vertices = [...new Set(used)];
    const points = vertices.map(at);
    const places = new Set(points.map((p) => p.map((n) => n + 0).join())).size;
    for (const use of isSkinned ? [IDENTITY] : uses) {
      ++facts.meshes;
      facts[KINDS[mode]] += COUNTS[mode](used.length);
      facts.vertices[0] += places;
      facts.vertices[1] += vertices.length;
      for (const p of points) {
        const q = moved(use, p);
        for (let axis = 0; axis < 3; ++axis) {
          facts.min[axis] = Math.min(facts.min[axis], q[axis]);
          facts.max[axis] = Math.max(facts.max[axis], q[axis]);
        }
      }
    }
  }
});
console.log(JSON.stringify(facts));
