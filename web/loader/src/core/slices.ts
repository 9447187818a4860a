/** How long work may go on before the page gets a turn: half a frame, so that one is never missed by much. */
const SLICE_MS = 8;

/** Cuts long work into slices, between which the page draws and answers. */
export class Slices {
  private end = performance.now() + SLICE_MS;

  /** True when it is time to pause. */
  get isOver(): boolean {
    return performance.now() >= this.end;
  }

  /** Gives the page its turn. */
  async pause(): Promise<void> {
    await turn();
    this.end = performance.now() + SLICE_MS;
  }
}

function turn(): Promise<void> {
  const { scheduler } = globalThis as { scheduler?: { yield?: () => Promise<void> } };
  if (scheduler?.yield) return scheduler.yield();
  // Timers would wait some milliseconds each, or a second in a page that nobody sees.
  return new Promise((resolve) => {
    const { port1, port2 } = new MessageChannel();
    port1.onmessage = () => {
      port1.close();
      resolve();
    };
    port2.postMessage(null);
  });
}
