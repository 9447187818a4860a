// What a trace of Chromium tells about the main thread of the page.

export interface TraceEvent {
  name: string;
  ph: string;
  pid: number;
  tid: number;
  /** Microseconds. */
  ts: number;
  dur?: number;
}

/**
 * The longest task of the thread that set the marks "bench:start" and "bench:end", of what lies between these, in
 * milliseconds; and the longest when the time between "bench:draw" and "bench:drawn" is taken off.
 */
export function longestTasks(events: TraceEvent[]): { all: number; withoutDrawing: number } {
  const marks = events.filter((event) => event.name.startsWith('bench:'));
  const start = marks.find((event) => event.name === 'bench:start'),
    end = marks.find((event) => event.name === 'bench:end');
  if (!start || !end) throw new Error('The trace has no marks of this page.');
  const named = (name: string) => marks.filter((event) => event.name === name).sort((a, b) => a.ts - b.ts);
  const drawn = named('bench:drawn');
  const draws = named('bench:draw').map((event, i) => ({ from: event.ts, to: drawn[i]!.ts }));
  let all = 0,
    withoutDrawing = 0;
  for (const task of events) {
    if (task.name !== 'RunTask' || task.pid !== start.pid || task.tid !== start.tid) continue;
    const from = Math.max(task.ts, start.ts),
      to = Math.min(task.ts + (task.dur ?? 0), end.ts);
    if (to <= from) continue;
    let other = to - from;
    for (const draw of draws) other -= Math.max(0, Math.min(to, draw.to) - Math.max(from, draw.from));
    all = Math.max(all, to - from);
    withoutDrawing = Math.max(withoutDrawing, other);
  }
  if (all === 0) throw new Error('The trace has no tasks of this page.');
  return { all: all / 1000, withoutDrawing: withoutDrawing / 1000 };
}
