import { createHash } from 'node:crypto';
import { fileURLToPath } from 'node:url';
import { defineConfig, type Plugin } from 'vite';

const HERE = fileURLToPath(new URL('.', import.meta.url));

/** Where `kelsrc convert --html` puts the files. */
const MARKER = '<!--kelsrc:files-->';

const hashOf = (text: string) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;

/**
 * The page once more in one file, which opens from disk: browsers load no module from a file's neighbour there. Its
 * policy names the hashes of the script and the style, so nothing that a model brings along can run.
 */
function oneFile(): Plugin {
  return {
    name: 'kelsrc-one-file',
    enforce: 'post',
    generateBundle(_, bundle) {
      const page = bundle['index.html'],
        code = bundle['viewer.js'],
        sheet = bundle['viewer.css'];
      if (page?.type !== 'asset' || code?.type !== 'chunk' || sheet?.type !== 'asset') {
        throw new Error('the page is not made of index.html, viewer.js and viewer.css');
      }
      // Inside a script element these two would end it, or begin a comment.
      const script = code.code.trim().replaceAll('</script', '<\\/script').replaceAll('<!--', '<\\!--');
      const style = String(sheet.source).trim();
      const policy = [
        "default-src 'none'",
        `script-src ${hashOf(script)}`,
        `style-src ${hashOf(style)}`,
        "img-src 'self' blob: data:",
        'connect-src *',
        "base-uri 'none'",
        "form-action 'none'",
      ].join('; ');
      let html = String(page.source);
      const put = (place: RegExp, text: string) => {
        if (html.match(place)?.length !== 1) throw new Error(`index.html should have ${place} once`);
        html = html.replace(place, () => text);
      };
      put(
        /<meta charset="utf-8" ?\/?>/,
        `<meta charset="utf-8" />\n    <meta http-equiv="Content-Security-Policy" content="${policy}" />`,
      );
      put(/\s*<script type="module"[^>]*><\/script>/, '');
      put(/<link rel="stylesheet"[^>]*>/, `<style>${style}</style>`);
      put(/<\/body>/, `${MARKER}\n    <script type="module">${script}</script>\n  </body>`);
      this.emitFile({ type: 'asset', fileName: 'viewer.html', source: html });
    },
  };
}

export default defineConfig({
  root: HERE,
  base: './',
  publicDir: false,
  build: {
    target: 'es2022',
    outDir: 'dist',
    // Always the same four names, so nothing stale stays; the type checker keeps its notes there.
    emptyOutDir: false,
    cssCodeSplit: false,
    assetsInlineLimit: 0,
    modulePreload: false,
    reportCompressedSize: false,
    chunkSizeWarningLimit: 2000,
    rollupOptions: {
      output: {
        entryFileNames: 'viewer.js',
        assetFileNames: 'viewer[extname]',
        inlineDynamicImports: true,
      },
    },
  },
  esbuild: { jsx: 'automatic', jsxImportSource: 'preact', legalComments: 'none' },
  plugins: [oneFile()],
});
