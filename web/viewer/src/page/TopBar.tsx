import { Button } from './controls.js';
import { useStore } from './context.js';
import { chooseFiles } from './OpenFiles.js';
import { focusList } from './shortcuts.js';
import { nextTheme, themeChoice, type ThemeChoice } from './theme.js';
import type { IconName } from './icons.js';

const THEMES: Record<ThemeChoice, { icon: IconName; label: string }> = {
  auto: { icon: 'auto', label: 'Theme: as the system' },
  light: { icon: 'sun', label: 'Theme: light' },
  dark: { icon: 'moon', label: 'Theme: dark' },
};

interface TopBarProps {
  /** Whether there are panels beside the picture. */
  panels: boolean;
  /** Whether there is a list of parts. */
  list: boolean;
}

export function TopBar({ panels, list }: TopBarProps) {
  const store = useStore();
  const files = store.files.value.filter((file) => file.state !== 'failed');
  const theme = THEMES[themeChoice.value];
  return (
    <header class="top-bar">
      {list && (
        <button type="button" class="skip" onClick={() => focusList(store)}>
          Skip to the list of parts
        </button>
      )}
      {panels && (
        <Button
          icon="panelLeft"
          label="List of parts"
          pressed={store.leftOpen.value}
          onClick={() => (store.leftOpen.value = !store.leftOpen.value)}
        />
      )}
      <h1 class="title">
        <span class="brand">kelSrc</span>
        {files.length > 0 && (
          <span class="title-files">{files.length === 1 ? files[0]!.name : `${files.length} files`}</span>
        )}
      </h1>
      <Button icon="open" label="Open files" text={panels} onClick={chooseFiles} />
      <Button icon={theme.icon} label={theme.label} onClick={nextTheme} />
      <Button icon="help" label="Keys and gestures" shortcut="?" onClick={() => (store.dialog.value = 'help')} />
      {panels && (
        <Button
          icon="panelRight"
          label="Details"
          pressed={store.rightOpen.value}
          onClick={() => (store.rightOpen.value = !store.rightOpen.value)}
        />
      )}
    </header>
  );
}
