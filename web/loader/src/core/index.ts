export { SRC_CODES, type SrcCode } from './codes.js';
export { SrcError, type SrcErrorPlace } from './SrcError.js';
export { DEFAULT_LIMITS, type ReadLimits } from './limits.js';
export * from './model.js';
export { boundsOf } from './bounds.js';
export { betweenOrigins } from './origin.js';
export {
  decodeAttribute,
  decodeCombinedNormals,
  type AttributeArray,
  type IndexArray,
  type MeshArrays,
  type TypedArray,
} from './arrays.js';
export { parseSrc, SrcFile } from './SrcFile.js';
export { SrcAssembler } from './SrcAssembler.js';
export { fetchMeshes } from './fetchMeshes.js';
export { streamSrc, type FetchOptions, type SrcEvent, type SrcSource } from './sources.js';
