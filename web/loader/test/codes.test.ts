import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { expect, test } from 'vitest';
import { PROJECT } from '../../support/paths.js';
import { SRC_CODES } from '../src/core/index.js';

test('the codes are those with which the C++ reader refuses files, word for word', () => {
  const table = readFileSync(join(PROJECT, 'include/kel/src/SrcCodes.h'), 'utf8');
  const rows = table.matchAll(/\bX\((\w+), \w+, (true|false), "((?:[^"\\]|\\.)*)", "((?:[^"\\]|\\.)*)"\)/g);
  const refused: Record<string, { sentence: string; remedy: string }> = {};
  for (const [, code, isRefused, sentence, remedy] of rows) {
    if (isRefused !== 'true') continue;
    refused[code!] = { sentence: JSON.parse(`"${sentence}"`), remedy: JSON.parse(`"${remedy}"`) };
  }
  expect(Object.keys(refused).length).toBeGreaterThan(20);
  expect(SRC_CODES).toEqual(refused);
});
