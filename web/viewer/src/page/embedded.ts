/** Files inside the page itself: `kelsrc convert --html` puts each into a script element that is no script. */

export const EMBEDDED_TYPE = 'application/vnd.kelsrc';

/** Characters of base64 that are decoded at a time: a multiple of 4, small enough that the page stays alive. */
const SLICE = 1 << 20;

export interface Embedded {
  name: string;
  /** The file's length, as the page says; 0 when it does not. */
  byteLength: number;
  /** Its bytes. `progress` is told how many are there. Throws when the page is damaged. */
  read(progress?: (bytes: number) => void): Promise<Uint8Array<ArrayBuffer>>;
}

export function embeddedFiles(document: Document): Embedded[] {
  const elements = [...document.querySelectorAll(`script[type="${EMBEDDED_TYPE}"]`)];
  return elements.map((element, i) => {
    const name = element.getAttribute('data-name') || `model ${i + 1}`;
    const byteLength = Number(element.getAttribute('data-bytes')) || 0;
    const gzip = element.getAttribute('data-encoding') === 'gzip';
    return { name, byteLength, read: (progress) => readElement(element, gzip, byteLength, progress) };
  });
}

/** Slices of the element's text: never the whole as one more text in memory. */
function* slicesOf(element: Element): Generator<string> {
  let carried = '';
  for (let node = element.firstChild; node; node = node.nextSibling) {
    if (!(node instanceof Text)) continue;
    for (let at = 0; at < node.length; at += SLICE) {
      const text = carried + node.substringData(at, SLICE).replace(/\s+/g, '');
      const whole = text.length - (text.length % 4);
      carried = text.slice(whole);
      if (whole > 0) yield text.slice(0, whole);
    }
  }
  if (carried) yield carried;
}

function decodeBase64(text: string): Uint8Array<ArrayBuffer> {
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let i = 0; i < binary.length; ++i) bytes[i] = binary.charCodeAt(i);
  return bytes;
}

async function readElement(
  element: Element,
  gzip: boolean,
  byteLength: number,
  progress?: (bytes: number) => void,
): Promise<Uint8Array<ArrayBuffer>> {
  const slices = slicesOf(element);
  let stream = new ReadableStream<Uint8Array<ArrayBuffer>>({
    async pull(controller) {
      // A task of its own for each slice, so that the page can draw and answer in between.
      await new Promise((resolve) => setTimeout(resolve, 0));
      const { value, done } = slices.next();
      if (done) controller.close();
      else controller.enqueue(decodeBase64(value));
    },
  });
  if (gzip) stream = stream.pipeThrough(new DecompressionStream('gzip'));

  let bytes = new Uint8Array(byteLength || SLICE);
  let length = 0;
  const reader = stream.getReader();
  for (let part = await reader.read(); !part.done; part = await reader.read()) {
    if (length + part.value.length > bytes.length) {
      const larger = new Uint8Array(Math.max(bytes.length * 2, length + part.value.length));
      larger.set(bytes.subarray(0, length));
      bytes = larger;
    }
    bytes.set(part.value, length);
    length += part.value.length;
    progress?.(length);
  }
  // The text is several times as large as what it becomes; nobody needs it again.
  element.textContent = '';
  return bytes.subarray(0, length);
}
