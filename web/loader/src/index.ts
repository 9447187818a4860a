export * from './core/index.js';
export { SRCLoader, SRCModel, type LoadOptions, type ModelOptions, type SRCEvent } from './three/SRCLoader.js';
export { decodeInShader, DEFAULT_MATERIAL_OPTIONS, MaterialTable, parametersOf } from './three/materials.js';
export { SRCMesh } from './three/objects.js';
