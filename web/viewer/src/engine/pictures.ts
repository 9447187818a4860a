import { Vector2, type WebGLRenderer } from 'three';

/** With its samples and depths a pixel takes some 40 bytes: more than these, and small GPUs fail. */
const MOST_PIXELS = 16 * 2 ** 20;

/**
 * A PNG of what `draw` draws, as wide as asked for or as the canvas and the GPU allow, with the proportions of the
 * canvas. The canvas itself is used, and put back before anybody sees it.
 */
export function pictureOf(renderer: WebGLRenderer, width: number | undefined, draw: () => void): Promise<Blob> {
  const canvas = renderer.domElement;
  const size = renderer.getSize(new Vector2());
  const ratio = renderer.getPixelRatio();
  const gl = renderer.getContext();
  const proportion = canvas.height / canvas.width;
  const [mostWide, mostHigh] = gl.getParameter(gl.MAX_VIEWPORT_DIMS) as Int32Array;
  const side = Math.min(gl.getParameter(gl.MAX_RENDERBUFFER_SIZE) as number, mostWide!, mostHigh!);
  const asked = Math.max(1, Math.round(width ?? canvas.width));
  let wide = Math.min(asked, side, side / proportion, Math.sqrt(MOST_PIXELS / proportion));
  let blob: Promise<Blob> | null = null;
  try {
    if (asked === canvas.width) {
      draw();
      blob = encoded(canvas);
    } else {
      // As many pixels for lines, points and outlines as the picture is larger.
      for (let tries = 0; tries < 4; ++tries) {
        const scale = (wide + 1e-3) / size.x;
        renderer.setPixelRatio(scale);
        renderer.setSize(size.x, size.y, false);
        if (gl.drawingBufferWidth >= canvas.width && gl.drawingBufferHeight >= canvas.height) break;
        wide = Math.floor(wide / 2);
      }
      draw();
      blob = encoded(canvas);
    }
  } finally {
    if (renderer.getPixelRatio() !== ratio) {
      renderer.setPixelRatio(ratio);
      renderer.setSize(size.x, size.y, false);
      draw();
    }
  }
  return blob;
}

/** What is on the canvas is taken at once, and made a PNG later. */
function encoded(canvas: HTMLCanvasElement): Promise<Blob> {
  return new Promise((resolve, reject) => {
    canvas.toBlob((blob) => {
      if (blob) resolve(blob);
      else reject(new Error('The browser could not make a picture of this size. Ask for a narrower one.'));
    }, 'image/png');
  });
}
