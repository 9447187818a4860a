import { BatchedMesh, Vector4, type Material } from 'three';
import { TRIANGLE_LAYER } from './layers.js';
import type { Kind } from './surface.js';

const WHITE = new Vector4(1, 1, 1, 1);

export interface Amounts {
  meshes: number;
  vertices: number;
  indices: number;
}

/** Draws many meshes at once, as triangles, lines or points. */
export class Batch extends BatchedMesh {
  /** What each instance looks like by its file's material, with its opacity. */
  readonly colors: Vector4[] = [];
  private readonly used: Amounts = { meshes: 0, vertices: 0, indices: 0 };

  constructor(
    readonly kind: Kind,
    private readonly room: Amounts,
    readonly ownMaterial: Material,
  ) {
    super(room.meshes, room.vertices, room.indices, ownMaterial);
    // Its parent class says that it is made of triangles; three.js asks these what to draw.
    if (kind !== 'triangles') {
      const self = this as unknown as Record<string, boolean>;
      self.isMesh = false;
      self[kind === 'lines' ? 'isLine' : 'isPoints'] = true;
      self.isLineSegments = kind === 'lines';
    }
    this.frustumCulled = false; // its meshes are, one by one
    if (kind === 'triangles') this.layers.enable(TRIANGLE_LAYER);
    this.raycast = () => undefined;
  }

  /** Takes room for one more mesh, if there is any. */
  take(vertices: number, indices: number): boolean {
    const { used, room } = this;
    if (used.meshes + 1 > room.meshes) return false;
    if (used.vertices + vertices > room.vertices || used.indices + indices > room.indices) return false;
    used.meshes += 1;
    used.vertices += vertices;
    used.indices += indices;
    return true;
  }

  /** Gives an instance its own colour, or leaves all of it to the material. */
  showColors(instance: number, own: boolean): void {
    this.setColorAt(instance, own ? this.colors[instance]! : WHITE);
  }
}
