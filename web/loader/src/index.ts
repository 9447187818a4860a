export * from './core/index.js';
export { SRCLoader, SRCModel, type LoadOptions, type ModelOptions, type SRCLoadEvent } from './three/SRCLoader.js';
export {
  decodeInShader,
  DEFAULT_MATERIAL_OPTIONS,
  MaterialTable,
  parametersOf,
  type DrawKind,
  type MakeMaterial,
  type MaterialNeeds,
  type MaterialOptions,
} from './three/materials.js';
export { DecodedMesh } from './three/objects.js';
