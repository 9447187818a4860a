import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { expect, test } from 'vitest';
import { WEB } from '../../../support/paths.js';
import { LIST_KEYS, SHORTCUTS } from '../../src/page/shortcuts.js';
import { POLICY } from './pageServer.js';

const README = readFileSync(join(WEB, 'viewer/README.md'), 'utf8');

test('the manual has the keys of the page, and no others', () => {
  const entries = [...SHORTCUTS.flatMap(({ shortcuts }) => shortcuts), ...LIST_KEYS];
  const lines = entries.map(({ keys, does }) => `| ${keys.map((key) => `\`${key}\``).join(' ')} | ${does} |`);
  const written = README.slice(README.indexOf('## Keys'))
    .split('\n')
    .filter((line) => line.startsWith('| `'));
  expect(written).toEqual(lines);
});

test('the manual states the policy that the tests are run under', () => expect(README).toContain(POLICY));

test('no key has two meanings', () => {
  const keys = SHORTCUTS.flatMap(({ shortcuts }) => shortcuts).flatMap(({ keys }) => keys);
  expect(new Set(keys).size).toBe(keys.length);
});
