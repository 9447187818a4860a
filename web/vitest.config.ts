import { defineConfig } from 'vitest/config';

export default defineConfig({
  test: {
    include: ['loader/test/**/*.test.ts', 'viewer/test/**/*.test.ts', 'bench/test/**/*.test.ts'],
    testTimeout: 30_000,
    reporters: process.env.CI || !process.stdout.isTTY ? ['dot'] : ['default'],
  },
});
