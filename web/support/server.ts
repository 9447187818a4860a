import { createServer, type IncomingMessage, type Server, type ServerResponse } from 'node:http';
import type { AddressInfo } from 'node:net';

export type Handler = (request: IncomingMessage, response: ServerResponse) => void;

export interface TestServer {
  url: string;
  /** "METHOD path range" of each request. */
  requests: string[];
  close(): Promise<void>;
}

/** A server on this machine for the length of one test. */
export async function serve(handler: Handler): Promise<TestServer> {
  const requests: string[] = [];
  const server: Server = createServer((request, response) => {
    requests.push(`${request.method} ${request.url} ${request.headers.range ?? ''}`.trim());
    response.setHeader('Access-Control-Allow-Origin', '*');
    handler(request, response);
  });
  await new Promise<void>((resolve) => server.listen(0, '127.0.0.1', resolve));
  return {
    url: `http://127.0.0.1:${(server.address() as AddressInfo).port}`,
    requests,
    close: () =>
      new Promise((resolve) => {
        server.close(() => resolve());
        server.closeAllConnections();
      }),
  };
}

/** Sends bytes as a server does that knows ranges. */
export function sendRanges(bytes: Uint8Array, tag?: () => string): Handler {
  return (request, response) => {
    if (tag) response.setHeader('ETag', tag());
    const match = /^bytes=(\d+)-(\d+)$/.exec(request.headers.range ?? '');
    if (!match) {
      response.setHeader('Content-Length', bytes.length);
      response.end(bytes);
      return;
    }
    const start = Number(match[1]),
      end = Math.min(Number(match[2]) + 1, bytes.length);
    if (start >= bytes.length) {
      response.writeHead(416, { 'Content-Range': `bytes */${bytes.length}` }).end();
      return;
    }
    response.writeHead(206, {
      'Content-Range': `bytes ${start}-${end - 1}/${bytes.length}`,
      'Content-Length': end - start,
    });
    response.end(bytes.subarray(start, end));
  };
}

/** Sends bytes in one go, whatever range was asked for. */
export function sendWhole(bytes: Uint8Array | string): Handler {
  return (_, response) => {
    response.end(bytes);
  };
}
