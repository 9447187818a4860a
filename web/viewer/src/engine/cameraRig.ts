import { Box3, MathUtils, PerspectiveCamera, Quaternion, Sphere, Spherical, Vector3 } from 'three';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';
import type { StandardView } from './api.js';
import { distanceToFit } from './framing.js';

const ANIMATION_MS = 350;
const FRAME_MS = 1000 / 60;
/** Less than the whole picture, so that nothing touches its border. */
const MARGIN = 1.08;
const Y = new Vector3(0, 1, 0);

/** Directions to the camera as angles about the axis that points up, from the front, and from that axis. */
const VIEWS: Record<StandardView, [theta: number, phi: number]> = {
  front: [0, Math.PI / 2],
  back: [Math.PI, Math.PI / 2],
  left: [-Math.PI / 2, Math.PI / 2],
  right: [Math.PI / 2, Math.PI / 2],
  top: [0, 0],
  bottom: [0, Math.PI],
  iso: [Math.PI / 5, Math.acos(1 / Math.sqrt(3))],
};

interface Pose {
  target: Vector3;
  /** From the target to the camera, in a space whose y points up. */
  offset: Spherical;
}

/** The camera, what moves it, and how it gets from one place to another. All in the coordinates of the scene. */
export class CameraRig {
  readonly camera = new PerspectiveCamera(35, 1, 0.1, 10);
  /** A person or a caller has put the camera where it is: new content does not move it. */
  placed = false;

  private controls: OrbitControls;
  private readonly toUp = new Quaternion();
  private readonly fromUp = new Quaternion();
  private animation: { from: Pose; to: Pose; start: number } | null = null;
  private dragging = false;
  private moved = false;
  private runsOn = false;
  private lastUpdate = 0;
  private readonly seenPosition = new Vector3();
  private readonly seenTarget = new Vector3();
  private readonly sphere = new Sphere(new Vector3(), 1);
  private readonly reduced = matchMedia('(prefers-reduced-motion: reduce)');

  constructor(
    private readonly canvas: HTMLCanvasElement,
    private readonly invalidate: () => void,
    /** The camera has come to rest. */
    private readonly rested: () => void,
  ) {
    this.camera.position.set(0, 0, 3);
    this.controls = this.control();
    this.canvas.addEventListener('keydown', this.onKey);
    this.canvas.addEventListener('pointermove', this.onDrag);
  }

  get target(): Vector3 {
    return this.controls.target;
  }

  setUp(up: Vector3): void {
    if (this.camera.up.equals(up)) return;
    const pose = this.pose();
    this.camera.up.copy(up);
    const target = this.controls.target.clone();
    this.controls.dispose();
    this.controls = this.control(); // controls learn which way is up when they are made
    this.controls.target.copy(target);
    this.animation = null;
    this.take(pose);
  }

  /** What the camera has to show, near and far. */
  setContent(box: Box3): void {
    if (box.isEmpty()) this.sphere.set(new Vector3(), 1);
    else box.getBoundingSphere(this.sphere);
    if (this.sphere.radius <= 0) this.sphere.radius = 0.5;
    this.controls.minDistance = this.sphere.radius * 1e-5;
    this.controls.maxDistance = this.sphere.radius * 1e3;
    this.camera.updateMatrixWorld();
  }

  /** Everything has another place in the scene, by so much, and looks as it did. */
  moveWith(by: Vector3): void {
    if (by.lengthSq() === 0) return;
    const { camera, controls, seenPosition, seenTarget, animation } = this;
    const places = [camera.position, controls.target, seenPosition, seenTarget];
    if (animation) places.push(animation.from.target, animation.to.target);
    for (const place of places) place.add(by);
    camera.updateMatrixWorld();
  }

  resize(width: number, height: number): void {
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
  }

  place(position: Vector3, target: Vector3, animate: boolean): void {
    this.placed = true;
    const offset = position.clone().sub(target).applyQuaternion(this.toUp);
    if (offset.lengthSq() === 0) offset.set(0, 0, this.sphere.radius);
    this.go({ target: target.clone(), offset: new Spherical().setFromVector3(offset) }, animate);
  }

  /** Moves so that the box fills the picture, seen from where the camera is, or from one side. */
  fit(box: Box3, view: StandardView | null, animate: boolean): void {
    if (box.isEmpty()) return;
    const { offset } = this.animation?.to ?? this.pose();
    const [theta, phi] = view ? VIEWS[view] : [offset.theta, offset.phi];
    const direction = new Spherical(1, phi, theta).makeSafe();
    const towards = new Vector3().setFromSpherical(direction).applyQuaternion(this.fromUp);
    const distance = distanceToFit(box, towards, this.camera) * MARGIN;
    const smallest = this.sphere.radius * 1e-3;
    direction.radius = Math.max(distance, smallest);
    this.go({ target: box.getCenter(new Vector3()), offset: direction }, animate);
  }

  /** Once per picture; true while the camera is moving by itself. */
  update(now: number): boolean {
    let moving = false;
    if (this.animation) {
      const { from, to, start } = this.animation;
      const t = MathUtils.clamp((now - start) / ANIMATION_MS, 0, 1);
      moving = t < 1;
      if (!moving) this.animation = null;
      this.take(between(from, to, 1 - (1 - t) ** 3));
      this.moved = true;
    } else {
      // Each update is what a drag runs on in one frame of a quick screen; slow pictures stand for several.
      const frames = this.runsOn ? MathUtils.clamp(Math.round((now - this.lastUpdate) / FRAME_MS), 1, 12) : 1;
      for (let i = 0; i < frames; ++i) this.controls.update();
      moving = this.hasMoved();
      if (moving) this.moved = true;
      if (moving && this.dragging) this.placed = true;
    }
    this.runsOn = moving;
    this.lastUpdate = now;
    this.setDepths();
    if (!moving && !this.dragging && this.moved) {
      this.moved = false;
      this.rested();
    }
    return moving;
  }

  dispose(): void {
    this.controls.dispose();
    this.canvas.removeEventListener('keydown', this.onKey);
    this.canvas.removeEventListener('pointermove', this.onDrag);
  }

  private control(): OrbitControls {
    this.toUp.setFromUnitVectors(this.camera.up, Y);
    this.fromUp.copy(this.toUp).invert();
    const controls = new OrbitControls(this.camera, this.canvas);
    controls.enableDamping = !this.reduced.matches;
    controls.dampingFactor = 0.25;
    controls.zoomToCursor = true;
    controls.zoomSpeed = 1.4;
    controls.minDistance = this.sphere.radius * 1e-5;
    controls.maxDistance = this.sphere.radius * 1e3;
    controls.addEventListener('start', () => {
      this.dragging = true;
      this.animation = null;
    });
    controls.addEventListener('end', () => {
      this.dragging = false;
      if (this.hasMoved()) this.placed = this.moved = true;
      this.invalidate();
    });
    return controls;
  }

  /**
   * True when the camera is not where it was when this was asked last, by more than anybody sees. The controls tell
   * changes too, but in units that mean nothing in very small or large scenes.
   */
  private hasMoved(): boolean {
    const { position } = this.camera;
    const { target } = this.controls;
    const least = (position.distanceTo(target) * 1e-4) ** 2;
    const { seenPosition, seenTarget } = this;
    const stays = position.distanceToSquared(seenPosition) <= least && target.distanceToSquared(seenTarget) <= least;
    if (stays) return false;
    seenPosition.copy(position);
    seenTarget.copy(target);
    return true;
  }

  private pose(): Pose {
    const offset = this.camera.position.clone().sub(this.controls.target).applyQuaternion(this.toUp);
    return { target: this.controls.target.clone(), offset: new Spherical().setFromVector3(offset) };
  }

  private take({ target, offset }: Pose): void {
    this.controls.target.copy(target);
    const safe = offset.clone().makeSafe();
    this.camera.position.setFromSpherical(safe).applyQuaternion(this.fromUp).add(target);
    this.camera.lookAt(target);
    this.camera.updateMatrixWorld();
    this.seenPosition.copy(this.camera.position);
    this.seenTarget.copy(target);
  }

  private go(to: Pose, animate: boolean): void {
    this.stop();
    if (animate && !this.reduced.matches) {
      this.animation = { from: this.pose(), to, start: performance.now() };
    } else {
      this.animation = null;
      this.take(to);
    }
    this.moved = true;
    this.invalidate();
  }

  /** Ends what is left of a drag: without damping, the controls do all of it at once, and this is undone. */
  private stop(): void {
    const pose = this.pose();
    const { enableDamping } = this.controls;
    this.controls.enableDamping = false;
    this.controls.update();
    this.controls.enableDamping = enableDamping;
    this.take(pose);
  }

  /** Near enough for what the camera looks at, far enough for all there is. */
  private setDepths(): void {
    const { camera, sphere } = this;
    const toCenter = camera.position.distanceTo(sphere.center);
    const far = (toCenter + sphere.radius) * 1.05;
    const looking = camera.position.distanceTo(this.controls.target);
    const near = Math.max(toCenter - sphere.radius * 1.05, Math.min(looking, sphere.radius) / 100, far * 1e-6);
    if (near === camera.near && far === camera.far) return;
    camera.near = near;
    camera.far = far;
    camera.updateProjectionMatrix();
  }

  private readonly onDrag = () => {
    if (this.dragging) this.invalidate();
  };

  private readonly onKey = (event: KeyboardEvent) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const { controls } = this;
    const angle = MathUtils.degToRad(7.5),
      pixels = 24;
    const pans = event.shiftKey;
    const actions: Record<string, () => void> = {
      ArrowLeft: () => (pans ? controls.pan(pixels, 0) : controls.rotateLeft(angle)),
      ArrowRight: () => (pans ? controls.pan(-pixels, 0) : controls.rotateLeft(-angle)),
      ArrowUp: () => (pans ? controls.pan(0, pixels) : controls.rotateUp(angle)),
      ArrowDown: () => (pans ? controls.pan(0, -pixels) : controls.rotateUp(-angle)),
      '+': () => this.dolly(1 / 1.2),
      '=': () => this.dolly(1 / 1.2),
      '-': () => this.dolly(1.2),
    };
    const action = actions[event.key];
    if (!action) return;
    event.preventDefault();
    this.animation = null;
    this.placed = true;
    action();
    this.moved = true;
    this.invalidate();
  };

  private dolly(factor: number): void {
    const pose = this.pose();
    const { minDistance, maxDistance } = this.controls;
    pose.offset.radius = MathUtils.clamp(pose.offset.radius * factor, minDistance, maxDistance);
    this.take(pose);
  }
}

/** On the shorter way round. */
function between(from: Pose, to: Pose, t: number): Pose {
  const turn = MathUtils.euclideanModulo(to.offset.theta - from.offset.theta + Math.PI, 2 * Math.PI) - Math.PI;
  return {
    target: from.target.clone().lerp(to.target, t),
    offset: new Spherical(
      from.offset.radius * (to.offset.radius / from.offset.radius) ** t,
      MathUtils.lerp(from.offset.phi, to.offset.phi, t),
      from.offset.theta + turn * t,
    ),
  };
}
