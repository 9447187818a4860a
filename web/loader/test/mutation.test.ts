import { expect, test } from 'vitest';
import { decodeAttribute, parseSrc, SrcError, SRCLoader } from '../src/index.js';
import { SrcAssembler } from '../src/core/SrcAssembler.js';
import { chance, mutate } from './chance.js';
import { fixture, srcOf } from './support.js';

test.each(['broken-container', 'broken-public', 'chunks', 'primitives', 'bits-5'])(
  'a damaged header of %s is refused in words or read within its bytes',
  (name) => {
    const good = fixture(name);
    const length = new DataView(good.buffer).getUint32(8, true);
    const text = new TextDecoder().decode(good.subarray(12, 12 + length));
    const data = good.subarray(12 + length);
    const random = chance(1);
    const codes = new Set<string>();
    let read = 0;
    for (let i = 0; i < 1500; ++i) {
      const header: unknown = JSON.parse(text);
      mutate(header, random);
      const file = srcOf(header, data as never);
      try {
        const parsed = parseSrc(file);
        for (const mesh of parsed.meshes) parsed.arrays(mesh).attributes.forEach(decodeAttribute);
        new SRCLoader()
          .setBatch(i % 2 === 0)
          .parse(file)
          .dispose();
        const assembler = new SrcAssembler();
        assembler.push(file);
        while (assembler.take());
        assembler.end();
        ++read;
      } catch (error) {
        if (!(error instanceof SrcError)) throw new Error(`${JSON.stringify(header)}`, { cause: error });
        codes.add(error.code);
      }
    }
    // Both happen, or the test tests nothing.
    expect(read).toBeGreaterThan(100);
    expect(codes.size).toBeGreaterThan(8);
  },
);
