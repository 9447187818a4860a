import type { ComponentChildren } from 'preact';
import { useEffect, useId, useRef, useState } from 'preact/hooks';
import { Icon, type IconName } from './icons.js';

export interface ButtonProps {
  icon: IconName;
  label: string;
  /** The key that does the same. */
  shortcut?: string;
  pressed?: boolean;
  expanded?: boolean;
  disabled?: boolean;
  /** Shows the label beside the icon. */
  text?: boolean;
  primary?: boolean;
  tabIndex?: number;
  onClick(): void;
}

export function Button({
  icon,
  label,
  shortcut,
  pressed,
  expanded,
  disabled,
  text,
  primary,
  tabIndex,
  onClick,
}: ButtonProps) {
  return (
    <button
      type="button"
      class={`button${text ? ' with-text' : ''}${primary ? ' primary' : ''}`}
      aria-label={text ? undefined : label}
      aria-pressed={pressed}
      aria-expanded={expanded}
      aria-keyshortcuts={shortcut}
      title={text && !shortcut ? undefined : shortcut ? `${label} (${shortcut})` : label}
      disabled={disabled}
      tabIndex={tabIndex}
      onClick={onClick}
    >
      <Icon name={icon} />
      {text && <span>{label}</span>}
    </button>
  );
}

interface ChoiceProps<T extends string> {
  legend: string;
  value: T;
  options: readonly { value: T; label: string }[];
  onChange(value: T): void;
}

/** One of a few, side by side. */
export function Choice<T extends string>({ legend, value, options, onChange }: ChoiceProps<T>) {
  const name = useId();
  return (
    <fieldset class="choice">
      <legend>{legend}</legend>
      <div class="segments">
        {options.map((option) => (
          <label key={option.value}>
            <input
              type="radio"
              name={name}
              value={option.value}
              checked={option.value === value}
              onChange={() => onChange(option.value)}
            />
            <span>{option.label}</span>
          </label>
        ))}
      </div>
    </fieldset>
  );
}

interface SwitchProps {
  label: string;
  checked: boolean;
  shortcut?: string;
  onChange(checked: boolean): void;
}

export function Switch({ label, checked, shortcut, onChange }: SwitchProps) {
  return (
    <label class="switch">
      <span>
        {label}
        {shortcut && <kbd>{shortcut}</kbd>}
      </span>
      <input
        type="checkbox"
        role="switch"
        checked={checked}
        onChange={(event) => onChange(event.currentTarget.checked)}
      />
    </label>
  );
}

interface PopoverProps {
  icon: IconName;
  label: string;
  children: ComponentChildren;
}

/** A button that opens a small panel above itself. */
export function Popover({ icon, label, children }: PopoverProps) {
  const [open, setOpen] = useState(false);
  const box = useRef<HTMLDivElement>(null);
  useEffect(() => {
    if (!open) return;
    const outside = (event: Event) => {
      if (!box.current?.contains(event.target as Node)) setOpen(false);
    };
    addEventListener('pointerdown', outside, true);
    addEventListener('focusin', outside, true);
    return () => {
      removeEventListener('pointerdown', outside, true);
      removeEventListener('focusin', outside, true);
    };
  }, [open]);
  const onKeyDown = (event: KeyboardEvent) => {
    if (!open || event.key !== 'Escape') return;
    // It ends the panel and nothing else.
    event.preventDefault();
    setOpen(false);
    box.current?.querySelector('button')?.focus();
  };
  return (
    <div class="popover" ref={box} onKeyDown={onKeyDown}>
      <Button icon={icon} label={label} expanded={open} onClick={() => setOpen(!open)} />
      {open && (
        <div class="popover-panel" role="group" aria-label={label}>
          {children}
        </div>
      )}
    </div>
  );
}
