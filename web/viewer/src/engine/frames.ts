/** While files come in, content is drawn this often: pictures of large files take the time that loading needs. */
const CONTENT_MS = 120;

/** Draws when something has changed, and never otherwise. */
export class Frames {
  private request = 0;
  private timer = 0;
  private lastContent = -Infinity;
  private toDraw = false;
  private hasProgress = false;

  /** `draw` returns true when the next picture will be another one. */
  constructor(private readonly listener: { draw(now: number): boolean; progressed(): void }) {}

  /** Draws in the next frame. */
  readonly soon = (): void => {
    this.toDraw = true;
    this.ask();
  };

  /** Draws in a while. */
  readonly later = (): void => {
    if (this.timer || this.toDraw) return;
    const wait = this.lastContent + CONTENT_MS - performance.now();
    this.timer = window.setTimeout(
      () => {
        this.timer = 0;
        this.soon();
      },
      Math.max(0, wait),
    );
  };

  /** Tells of progress in the next frame. */
  readonly progress = (): void => {
    this.hasProgress = true;
    this.ask();
  };

  /** True when what is seen is what there is. */
  get settled(): boolean {
    return !this.request && !this.timer;
  }

  stop(): void {
    cancelAnimationFrame(this.request);
    clearTimeout(this.timer);
    this.ask = () => undefined;
  }

  private ask = (): void => {
    this.request ||= requestAnimationFrame(this.frame);
  };

  private readonly frame = (now: number): void => {
    this.request = 0;
    if (this.hasProgress) {
      this.hasProgress = false;
      this.listener.progressed();
    }
    if (!this.toDraw) return;
    this.toDraw = false;
    this.lastContent = now;
    if (this.listener.draw(now)) this.soon();
  };
}
