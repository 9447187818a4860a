export * from './core/index.js';
export { SRCLoader, SRCModel, type LoadOptions, type SRCEvent } from './three/SRCLoader.js';
export { decodeInShader, parametersOf } from './three/materials.js';
export { SRCMesh } from './three/objects.js';
