/** Tells listeners what has happened. */
export class Emitter<Events> {
  private readonly listeners = new Map<keyof Events, Set<(value: never) => void>>();

  /** Gives a function that ends it. */
  on<K extends keyof Events>(event: K, listener: (value: Events[K]) => void): () => void {
    let set = this.listeners.get(event);
    if (!set) this.listeners.set(event, (set = new Set()));
    const own = (value: Events[K]) => listener(value); // the same listener may be added twice
    set.add(own);
    return () => set.delete(own);
  }

  emit<K extends keyof Events>(event: K, value: Events[K]): void {
    for (const listener of [...(this.listeners.get(event) ?? [])]) (listener as (value: Events[K]) => void)(value);
  }

  clear(): void {
    this.listeners.clear();
  }
}
