// What drives the page: the host, started, and a browser that asks nobody else.

import {spawn} from 'node:child_process';
import {chromium} from 'playwright-core';

/** Starts the host; its process and the URLs of its `count` listeners, in the order of the configuration. */
export async function serve(tool, configuration, count) {
  const host = spawn(tool, ['--config', configuration, 'serve'], {stdio: ['ignore', 'ignore', 'pipe']});
  let said = '';
  host.stderr.setEncoding('utf8');
  for await (const text of host.stderr) {
    said += text;
    const urls = [...said.matchAll(/listening on (https:)?(\S+)\n/g)].map(([, tls, address]) => `${tls ?? 'http:'}//${address}`);
    if (urls.length === count) {
      return {host, urls};
    }
  }
  throw new Error(`the host does not start: ${said}`);
}

export const launch = () => chromium.launch({executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu', '--disable-quic',
  '--no-first-run', '--disable-background-networking', '--disable-component-update', '--disable-sync']});
