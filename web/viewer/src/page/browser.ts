/** What the browser does for the page, with what it may refuse. */

export async function copyText(text: string): Promise<boolean> {
  try {
    await navigator.clipboard.writeText(text);
    return true;
  } catch {
    // Pages without https have no clipboard, but this.
    const field = document.createElement('textarea');
    field.value = text;
    document.body.append(field);
    field.select();
    const copied = document.execCommand('copy');
    field.remove();
    return copied;
  }
}

export function saveBlob(blob: Blob, name: string): void {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
}

/** Private windows and pages from disk may forbid to remember anything. */
export function remember(key: string, value: string): void {
  try {
    localStorage.setItem(`kelsrc-viewer-${key}`, value);
  } catch {
    // Then it holds until the page is closed.
  }
}

export function remembered(key: string): string | null {
  try {
    return localStorage.getItem(`kelsrc-viewer-${key}`);
  } catch {
    return null;
  }
}
