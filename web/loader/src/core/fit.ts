import { isCombined, isObject, type JsonValue, type SrcAttribute, type SrcFit } from './model.js';

/** Metadata's "fit" of one attribute, when it has as many numbers as the attribute has components. */
export function fitOf(fit: JsonValue | undefined, { name, view }: Omit<SrcAttribute, 'fit'>): SrcFit | null {
  // Of the interleaved attribute, the first three components are the positions; the fourth holds the normal.
  const combined = isCombined({ name, view });
  const key = combined ? 'position' : name,
    components = combined ? 3 : view.components;
  if (!isObject(fit) || !Object.hasOwn(fit, key)) return null;
  const entry = fit[key];
  if (!isObject(entry)) return null;
  const offset = numbersOf(entry.offset),
    scale = numbersOf(entry.scale);
  if (offset?.length !== components || scale?.length !== components) return null;
  return { offset, scale };
}

/** The numbers of a list, or the one number. */
function numbersOf(value: JsonValue | undefined): number[] | null {
  const list = Array.isArray(value) ? value : [value];
  return list.every((x) => typeof x === 'number' && Number.isFinite(x)) ? (list as number[]) : null;
}
