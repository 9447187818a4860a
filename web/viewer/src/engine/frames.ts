/** While files come in, content is drawn no more often than this ... */
const CONTENT_MS = 120;
/** ... and loading gets so many times the time that drawing takes, since both share one thread. */
const SHARE = 3;
/** Whatever drawing takes, people see that something goes on. */
const MOST_MS = 2000;

/** Draws when something has changed, and never otherwise. */
export class Frames {
  private request = 0;
  private timer = 0;
  private nextContent = 0;
  private asked = 0;
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
    const wait = Math.max(0, this.nextContent - performance.now());
    this.timer = window.setTimeout(() => {
      this.timer = 0;
      this.soon();
    }, wait);
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
    if (this.request) return;
    this.asked = performance.now();
    this.request = requestAnimationFrame(this.frame);
  };

  private readonly frame = (now: number): void => {
    this.request = 0;
    if (this.hasProgress) {
      this.hasProgress = false;
      this.listener.progressed();
    }
    if (!this.toDraw) return;
    this.toDraw = false;
    const goesOn = this.listener.draw(now);
    // A browser whose graphics are busy with the last picture asks late for the next one.
    const end = performance.now();
    this.nextContent = end + Math.min(MOST_MS, Math.max(CONTENT_MS, SHARE * (end - this.asked)));
    if (goesOn) this.soon();
  };
}
