import { describe, expect, it } from 'vitest';
import { aimsTable, median, plotOf, replaceSection, sectionOf, type Row } from '../report.js';
import { longestTasks } from '../trace.js';

const row = (name: string, more: Partial<Row> = {}): Row => ({
  name,
  ours: name.startsWith('SRC'),
  streams: name.endsWith('stream'),
  bytes: 2e6,
  gzipBytes: 1e6,
  firstPixel: 100,
  inScene: 150,
  complete: 200,
  longestTask: 30,
  longestTaskWithoutDrawing: 4,
  heap: 3e6,
  ...more,
});
const scene = { name: 'a', title: '1 mesh', rows: [row('SRC x, stream'), row('GLB <y>', { firstPixel: 310 })] };

describe('report', () => {
  it('takes the middle of what was measured', () => {
    expect([median([3, 1, 2]), median([4, 1, 3, 2])]).toEqual([2, 2.5]);
  });

  it('writes a row per file', () => {
    const report = { browser: 'B 1', rounds: 3, local: [scene], pacedRounds: 0, paced: [], bytesPerSecond: 1 };
    expect(sectionOf(report)).toContain('| SRC x, stream | 2.0 | 1.0 | 100 | 150 | 200 | 30 | 4.0 | 3.0 | 1.50 |');
  });

  it('says how many rows reach an aim', () => {
    const rows = [
      row('SRC x, stream', { firstPixel: 50 }),
      row('SRC y, stream', { firstPixel: 200, heap: 2e6 }),
      row('SRC x, load', { complete: 90 }),
      row('GLB p', { firstPixel: 300, complete: 300 }),
      row('GLB q', { firstPixel: 400, complete: 180 }),
    ];
    expect(aimsTable([{ name: 'b', title: '', rows }]).split('\n')[2]).toBe(
      '| b | 1.50 to 6.00, 1 of 2 | 0.50, 1 of 1 | 1.00 to 1.50, 1 of 3 |',
    );
  });

  it('leaves the rest of the document alone', () => {
    const document = 'before\n<!-- browser: begin -->\nold\n<!-- browser: end -->\nafter\n';
    expect(replaceSection(document, 'new\n')).toBe(
      'before\n<!-- browser: begin -->\n\nnew\n\n<!-- browser: end -->\nafter\n',
    );
  });

  it('refuses a document without the lines', () => {
    expect(() => replaceSection('text', 'new')).toThrow('browser: begin');
  });

  it('draws the slowest bar over the whole width, and escapes names', () => {
    const svg = plotOf([scene]);
    expect(svg).toContain('width="460.0" height="14" fill="#d5dadf"');
    expect(svg).toContain('GLB &lt;y&gt;');
  });
});

describe('longest task', () => {
  const at = (name: string, ts: number, dur?: number, tid = 1) => ({ name, ph: 'X', pid: 1, tid, ts, dur });

  it('is of this page only, and drawing can be taken off', () => {
    const events = [
      at('bench:start', 1000),
      at('RunTask', 2000, 5000),
      at('RunTask', 10_000, 30_000),
      at('bench:draw', 12_000),
      at('bench:drawn', 38_000),
      at('RunTask', 2000, 90_000, 2),
      at('bench:end', 50_000),
    ];
    expect(longestTasks(events)).toEqual({ all: 30, withoutDrawing: 5 });
  });

  it('ends with the load', () => {
    const events = [at('bench:start', 0), at('RunTask', 1000, 9000), at('bench:end', 4000)];
    expect(longestTasks(events)).toEqual({ all: 3, withoutDrawing: 3 });
  });
});
