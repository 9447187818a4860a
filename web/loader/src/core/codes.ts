/**
 * Why a file is refused. The codes, their sentences and remedies are those of the C++ reader
 * (include/kel/src/SrcCodes.h), and a test compares the two.
 */
export const SRC_CODES = {
  UNREADABLE: {
    sentence: 'The file cannot be read.',
    remedy: 'Check the path and the permissions.',
  },
  NOT_A_FILE: {
    sentence: 'This is not a file.',
    remedy: 'Name the SRC file itself.',
  },
  EMPTY_FILE: {
    sentence: 'The file is empty.',
    remedy: 'Write or download it again; the last attempt left nothing.',
  },
  TRUNCATED_PREAMBLE: {
    sentence: 'The file ends inside its first 12 bytes.',
    remedy: 'Write or download it again.',
  },
  LOOKS_LIKE_HTML: {
    sentence: 'This is a web page, not an SRC file.',
    remedy: 'Check the address: the server answered with a page, often an error page.',
  },
  LOOKS_LIKE_GLB: {
    sentence: 'This is a GLB file, not an SRC file.',
    remedy: 'Convert it: kelsrc convert MODEL -o OUT.src.',
  },
  WRONG_SIGNATURE: {
    sentence: 'The file does not begin with the numbers 23 and 42, so it is not an SRC file.',
    remedy: 'Check that this is the right file.',
  },
  UNKNOWN_LAYOUT: {
    sentence: 'The file begins with 23 but not with 42 after it: a layout that this reader does not know.',
    remedy: 'Read it with a newer version.',
  },
  HEADER_EMPTY: {
    sentence: 'The header has the length 0.',
    remedy: 'Write the file again; its writer did not finish.',
  },
  HEADER_TRUNCATED: {
    sentence: 'The header is longer than the rest of the file.',
    remedy: 'Write or download the file again.',
  },
  LIMIT_EXCEEDED: {
    sentence: 'The file asks for more than the limits allow.',
    remedy: 'If you trust the file, raise the limit that is named.',
  },
  JSON_SYNTAX: {
    sentence: 'The header is not valid JSON.',
    remedy: 'Write the file again; the place is where reading stopped.',
  },
  WRONG_TYPE: {
    sentence: 'A value has the wrong JSON type.',
    remedy: 'Correct the writer.',
  },
  BAD_NUMBER: {
    sentence: 'A number is not a whole number from 0 to 2^53 - 1, or not finite.',
    remedy: 'Correct the writer.',
  },
  WRONG_LENGTH: {
    sentence: 'A list of numbers has the wrong length.',
    remedy: 'Give one number per component.',
  },
  MISSING_SECTION: {
    sentence: 'A section of the header is missing.',
    remedy: 'Write the section, empty if there is nothing in it.',
  },
  MISSING_KEY: {
    sentence: 'A required entry is missing.',
    remedy: 'Correct the writer.',
  },
  BAD_COMPONENT_TYPE: {
    sentence: 'The component type is none that is allowed here.',
    remedy: 'Use 5120 to 5126; for indices 5121, 5123 or 5125.',
  },
  BAD_TYPE: {
    sentence: 'The type is none of SCALAR, VEC2, VEC3 and VEC4.',
    remedy: 'Correct the writer.',
  },
  BAD_PRIMITIVE: {
    sentence: 'The primitive is none of the modes 0 to 6.',
    remedy: 'Correct the writer.',
  },
  BAD_STRIDE: {
    sentence: 'The stride is smaller than one element.',
    remedy: 'Use the size of an element, or more when data are interleaved.',
  },
  ZERO_DECODE_SCALE: {
    sentence: 'A decode scale is 0, by which values would be divided.',
    remedy: 'Correct the writer; 1 leaves values as they are.',
  },
  DANGLING_CHUNK: {
    sentence: 'A buffer view names a chunk that is not there.',
    remedy: 'Correct the writer.',
  },
  DANGLING_BUFFER_VIEW: {
    sentence: 'A view names a buffer view that is not there.',
    remedy: 'Correct the writer.',
  },
  DANGLING_INDEX_VIEW: {
    sentence: 'A mesh names an index view that is not there.',
    remedy: 'Correct the writer.',
  },
  DANGLING_ATTRIBUTE_VIEW: {
    sentence: 'A mesh names an attribute view that is not there.',
    remedy: 'Correct the writer.',
  },
  CHUNK_PAST_END: {
    sentence: 'A chunk ends past the end of the file.',
    remedy: 'Write or download the file again; its end is missing.',
  },
  VIEW_PAST_END: {
    sentence: 'A view reads past the bytes of its buffer view.',
    remedy: 'Correct offset, stride or count, or store the missing bytes.',
  },
  REPEATED_CHUNKS: {
    sentence: "A buffer view's chunks add up to more than the data section, so some are repeated.",
    remedy: 'Name every chunk once.',
  },
  STREAM_OVERLAP: {
    sentence: 'Chunks share bytes, so the file cannot be read as a stream.',
    remedy: 'Read the whole file instead.',
  },
} as const;

export type SrcCode = keyof typeof SRC_CODES;
