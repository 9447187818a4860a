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
  type MeshArrays,
} from './arrays.js';
export type { Bytes, IndexArray, TypedArray } from './bytes.js';
export { parseSrc, SrcFile } from './SrcFile.js';
export { fetchMeshes } from './fetchMeshes.js';
export { streamSrc, type FetchOptions, type SrcEvent, type SrcSource } from './sources.js';
