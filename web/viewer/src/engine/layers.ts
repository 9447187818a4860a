/** Triangles are on this layer as well, so that their edges can be drawn without lines and points. */
export const TRIANGLE_LAYER = 1;
