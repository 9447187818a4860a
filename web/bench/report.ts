// Tables, plot and the marked section of the document.

export interface Row {
  /** "SRC position, stream" or "GLB quantized". */
  name: string;
  ours: boolean;
  /** Whether it shows what has come while the rest comes. */
  streams: boolean;
  bytes: number;
  gzipBytes: number;
  firstPixel: number;
  inScene: number;
  complete: number;
  longestTask: number;
  longestTaskWithoutDrawing: number;
  heap: number;
}

export interface SceneRows {
  name: string;
  title: string;
  rows: Row[];
}

export interface Report {
  browser: string;
  rounds: number;
  /** As fast as it goes. */
  local: SceneRows[];
  pacedRounds: number;
  /** Compressed, over a link of so many bytes per second. */
  paced: SceneRows[];
  bytesPerSecond: number;
}

const BEGIN = '<!-- browser: begin -->',
  END = '<!-- browser: end -->';

export function median(values: number[]): number {
  const sorted = [...values].sort((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 ? sorted[middle]! : (sorted[middle - 1]! + sorted[middle]!) / 2;
}

const megabytes = (bytes: number) => (bytes / 1e6).toFixed(1);
const milliseconds = (time: number) => (time < 20 ? time.toFixed(1) : time.toFixed(0));

function tableOf(head: string[], rows: string[][]): string {
  const lines = [head, ['---', ...head.slice(1).map(() => '---:')], ...rows];
  return lines.map((cells) => `| ${cells.join(' | ')} |`).join('\n') + '\n';
}

function localTable({ rows }: SceneRows): string {
  const head = ['file', 'MB', 'MB gzip', 'first pixel ms', 'in the scene ms', 'complete ms'];
  head.push('longest task ms', 'without drawing ms', 'heap MB', 'heap / file');
  return tableOf(
    head,
    rows.map((row) => [
      row.name,
      megabytes(row.bytes),
      megabytes(row.gzipBytes),
      milliseconds(row.firstPixel),
      milliseconds(row.inScene),
      milliseconds(row.complete),
      milliseconds(row.longestTask),
      milliseconds(row.longestTaskWithoutDrawing),
      megabytes(row.heap),
      (row.heap / row.bytes).toFixed(2),
    ]),
  );
}

function pacedTable({ rows }: SceneRows): string {
  return tableOf(
    ['file', 'MB gzip', 'first pixel ms', 'complete ms'],
    rows.map((row) => [row.name, megabytes(row.gzipBytes), milliseconds(row.firstPixel), milliseconds(row.complete)]),
  );
}

/** How far a group of rows reaches an aim: its worst and its best value, and how many are good enough. */
function range(rows: Row[], valueOf: (row: Row) => number, good: (value: number) => boolean): string {
  if (rows.length === 0) return 'not measured';
  const values = rows.map(valueOf);
  const [low, high] = [Math.min(...values).toFixed(2), Math.max(...values).toFixed(2)];
  return `${low === high ? low : `${low} to ${high}`}, ${values.filter(good).length} of ${values.length}`;
}

/** Our rows against the best of the others, which may be another one for each measure. */
export function aimsTable(scenes: SceneRows[]): string {
  const head = ['scene', 'first pixel, times sooner than the best GLB (aim: 3)'];
  head.push('complete, of the fastest GLB (aim: below 1)', 'heap, of the file (aim: up to 1.2)');
  return tableOf(
    head,
    scenes.map(({ name, rows }) => {
      const others = rows.filter((row) => !row.ours),
        ours = rows.filter((row) => row.ours);
      const first = Math.min(...others.map((row) => row.firstPixel)),
        complete = Math.min(...others.map((row) => row.complete));
      return [
        name,
        range(
          ours.filter((row) => row.streams),
          (row) => first / row.firstPixel,
          (x) => x >= 3,
        ),
        range(
          ours.filter((row) => !row.streams),
          (row) => row.complete / complete,
          (x) => x < 1,
        ),
        range(
          ours,
          (row) => row.heap / row.bytes,
          (x) => x <= 1.2,
        ),
      ];
    }),
  );
}

export function sectionOf(report: Report): string {
  const { browser, rounds, local, pacedRounds, paced, bytesPerSecond } = report;
  let text = `${browser}, medians of ${rounds} rounds.\n`;
  if (local.length > 0) {
    text += `\nEach cell: the range over the SRC rows, and how many of them reach the aim. First pixel counts rows that`;
    text += ` stream, complete those that do not draw in between.\n\n${aimsTable(local)}`;
  }
  for (const scene of local) text += `\n### Scene ${scene.name} in the browser: ${scene.title}\n\n${localTable(scene)}`;
  if (paced.length > 0) {
    text += `\n### Over a link of ${(bytesPerSecond / 1e6).toFixed(0)} MB/s, with gzip\n`;
    text += `\nMedians of ${pacedRounds} rounds.\n`;
    for (const scene of paced) text += `\nScene ${scene.name}: ${scene.title}\n\n${pacedTable(scene)}`;
  }
  return text;
}

/** The document with another text between its two marker lines. */
export function replaceSection(document: string, text: string): string {
  const from = document.indexOf(BEGIN),
    to = document.indexOf(END);
  if (from < 0 || to < from) throw new Error(`The document has no lines "${BEGIN}" and "${END}".`);
  return `${document.slice(0, from + BEGIN.length)}\n\n${text}\n${document.slice(to)}`;
}

const escaped = (text: string) => text.replace(/[&<>]/g, (c) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;' })[c]!);

/** Bars up to "complete", dark up to the first pixel; one group per scene, each with a scale of its own. */
export function plotOf(scenes: SceneRows[]): string {
  const left = 260,
    width = 460,
    row = 20,
    group = 40;
  const height = scenes.reduce((sum, scene) => sum + scene.rows.length * row + group, 0) + 40;
  let svg = `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${left + width + 130} ${height}"`;
  svg += ` font-family="sans-serif" font-size="12">\n<rect width="100%" height="100%" fill="#ffffff"/>\n`;
  const text = (x: number, y: number, value: string, more = '') =>
    `<text x="${x.toFixed(1)}" y="${y}" fill="#222222"${more}>${escaped(value)}</text>\n`;
  const bar = (x: number, y: number, size: number, fill: string) =>
    `<rect x="${x.toFixed(1)}" y="${y}" width="${size.toFixed(1)}" height="14" fill="${fill}"/>\n`;
  svg += text(10, 22, 'Dark: until the first pixel of geometry. Light: until everything is drawn.');
  let y = 30;
  for (const scene of scenes) {
    svg += text(10, y + 18, `${scene.name}: ${scene.title}, milliseconds`, ' font-weight="bold"');
    y += group - 10;
    const most = Math.max(...scene.rows.map((r) => r.complete));
    for (const r of scene.rows) {
      const first = (width * r.firstPixel) / most,
        complete = (width * r.complete) / most;
      svg += text(left - 8, y + 13, r.name, ' text-anchor="end"');
      svg += bar(left, y + 2, complete, r.ours ? '#9cc3f8' : '#d5dadf') + bar(left, y + 2, first, r.ours ? '#1f6feb' : '#9aa4ad');
      svg += text(left + complete + 6, y + 13, `${milliseconds(r.firstPixel)} / ${milliseconds(r.complete)}`);
      y += row;
    }
    y += 10;
  }
  return `${svg}</svg>\n`;
}
