// Typed arrays over an ArrayBuffer, which is what they are made over when nothing else is said. What "of" returns names
// them for compilers of all versions: before 5.7, typed arrays take no type argument.
type Own<Constructor extends { of(...items: number[]): unknown }> = ReturnType<Constructor['of']>;

export type Bytes = Own<Uint8ArrayConstructor>;

export type IndexArray = Bytes | Own<Uint16ArrayConstructor> | Own<Uint32ArrayConstructor>;

export type TypedArray =
  | IndexArray
  | Own<Int8ArrayConstructor>
  | Own<Int16ArrayConstructor>
  | Own<Int32ArrayConstructor>
  | Own<Float32ArrayConstructor>;
