import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

/** The folders of the packages and of the project around them. (`import.meta.dirname` is younger than Node.js 18.) */
export const WEB = fileURLToPath(new URL('..', import.meta.url));
export const PROJECT = join(WEB, '..');
