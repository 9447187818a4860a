/** A list of whole numbers below 2^31 that grows; no object per entry. */
export class Integers {
  private values = new Int32Array(256);
  length = 0;

  push(value: number): void {
    if (this.length === this.values.length) {
      const old = this.values;
      this.values = new Int32Array(2 * old.length);
      this.values.set(old);
    }
    this.values[this.length++] = value;
  }
  at(place: number): number {
    return this.values[place]!;
  }
  set(place: number, value: number): void {
    this.values[place] = value;
  }
  /** The entries, in an array of their number. */
  taken(): Int32Array {
    return this.values.slice(0, this.length);
  }
}

/** The same for numbers up to 2^53. */
export class Doubles {
  private values = new Float64Array(256);
  length = 0;

  push(value: number): void {
    if (this.length === this.values.length) {
      const old = this.values;
      this.values = new Float64Array(2 * old.length);
      this.values.set(old);
    }
    this.values[this.length++] = value;
  }
  at(place: number): number {
    return this.values[place]!;
  }
  taken(): Float64Array {
    return this.values.slice(0, this.length);
  }
}
