import { bytes as bytesText, share } from './model/format.js';
import { PURPOSES, type BytesByPurpose } from './model/bytes.js';

/** What a file's bytes are for: a bar of their shares, and the same as a table. */
export function ByteChart({ bytes }: { bytes: BytesByPurpose }) {
  const total = PURPOSES.reduce((sum, purpose) => sum + bytes[purpose], 0);
  const present = PURPOSES.map((purpose, place) => ({ purpose, place, size: bytes[purpose] })).filter(
    ({ size }) => size > 0,
  );
  let at = 0;
  return (
    <>
      <svg class="byte-bar" viewBox="0 0 1000 24" preserveAspectRatio="none" aria-hidden="true" focusable="false">
        {present.map(({ purpose, place, size }) => {
          const x = (at / total) * 1000;
          at += size;
          return (
            <rect key={purpose} class={`purpose-${place}`} x={x} y="0" width={(size / total) * 1000} height="24">
              <title>{`${purpose}: ${bytesText(size)}, ${share(size, total)}`}</title>
            </rect>
          );
        })}
      </svg>
      <table class="byte-table">
        <caption class="visually-hidden">Bytes by purpose</caption>
        <thead class="visually-hidden">
          <tr>
            <th scope="col">Purpose</th>
            <th scope="col">Size</th>
            <th scope="col">Share</th>
          </tr>
        </thead>
        <tbody>
          {present.map(({ purpose, place, size }) => (
            <tr key={purpose}>
              <th scope="row">
                <svg class="key-mark" viewBox="0 0 10 10" width="10" height="10" aria-hidden="true" focusable="false">
                  <rect class={`purpose-${place}`} width="10" height="10" rx="2.5" />
                </svg>
                {purpose}
              </th>
              <td>{bytesText(size)}</td>
              <td>{share(size, total)}</td>
            </tr>
          ))}
        </tbody>
      </table>
    </>
  );
}
