import { effect, signal } from '@preact/signals';
import { remember, remembered } from './browser.js';
import type { Store } from './store.js';

export type ThemeChoice = 'auto' | 'light' | 'dark';

const asChoice = (text: string | null): ThemeChoice => (text === 'light' || text === 'dark' ? text : 'auto');

export const themeChoice = signal<ThemeChoice>('auto');

const NEXT: Record<ThemeChoice, ThemeChoice> = { auto: 'light', light: 'dark', dark: 'auto' };

export function nextTheme(): void {
  themeChoice.value = NEXT[themeChoice.peek()];
  remember('theme', themeChoice.peek());
}

/** Keeps page and picture in the theme that was chosen, or else in the system's. */
export function followTheme(store: Store | null): void {
  themeChoice.value = asChoice(remembered('theme'));
  const system = matchMedia('(prefers-color-scheme: dark)');
  const systemIsDark = signal(system.matches);
  system.addEventListener('change', () => (systemIsDark.value = system.matches));
  effect(() => {
    const choice = themeChoice.value;
    const theme = choice === 'auto' ? (systemIsDark.value ? 'dark' : 'light') : choice;
    document.documentElement.dataset.theme = theme;
    store?.engine.setDisplay({ theme });
  });
}
