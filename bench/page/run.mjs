// Measures the page in a real browser: what the host spends on a view, what goes over the wire, and when it is shown.
//   cmake --preset release && cmake --build --preset release
//   npm ci --prefix tests/page && node bench/page/run.mjs [PERENNA_ACCESS]
// A directory of 100,000 users, 1,000 groups, 200,000 memberships and 1,000 filters. Prints the table; takes a minute.

import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {dirname, join, resolve} from 'node:path';
import {fileURLToPath} from 'node:url';
import {launch, serve} from '../../tests/page/browser.mjs';

const root = dirname(dirname(dirname(fileURLToPath(import.meta.url))));
const tool = process.argv[2] ? resolve(process.argv[2]) : join(root, 'build/release/bin/perenna-access');
const place = mkdtempSync(join(tmpdir(), 'perenna-page-'));
const run = (words, input = '') => execFileSync(tool, ['--config', join(place, 'host.json'), ...words], {input, encoding: 'utf8', maxBuffer: 1 << 28});
const rounds = 5;
const password = 'an administrator';

function makeDirectory() {
  writeFileSync(join(place, 'host.json'), JSON.stringify({
    LocalAccessManager: {DatabaseFilename: 'access.db'}, Host: {Listen: ['127.0.0.1:0'], Threads: 1}}));
  run(['init', '--administrators', 'administrators', '--password-stdin'], `${password}\n`);
  const directory = JSON.parse(run(['export', '-']));
  const created = {create_date: '2026-01-31T12:00:00+00:00', create_user: 'admin'};
  for (let group = 0; group < 1000; ++group) {
    directory.groups.push({group_id: `group${group}`, group_name: `Group ${group}`});
    directory.filters.push({method: 'GET', group_id: `group${group}`, filter: `^/area${group}(/|$)`, action: 'Allow'});
  }
  for (let user = 0; user < 100000; ++user) {
    directory.users.push({user_id: `user${user}`, auth_method: 'plain_pw', auth_value: 'x', ...created});
    for (const group of [user, user + 1]) {
      directory.memberships.push({group_id: `group${group % 1000}`, user_id: `user${user}`});
    }
  }
  writeFileSync(join(place, 'directory.json'), JSON.stringify(directory));
  run(['import', join(place, 'directory.json')]);
  run(['tune']);
}

/** Processor milliseconds of all threads of a process. */
function processor(pid) {
  const threads = execFileSync('sh', ['-c', `cat /proc/${pid}/task/*/schedstat`], {encoding: 'utf8'}).trim().split('\n');
  return threads.reduce((sum, line) => sum + Number(line.split(' ')[0]), 0) / 1e6;
}

const median = (values) => values.sort((left, right) => left - right)[values.length >> 1];

makeDirectory();
const {host, urls: [base]} = await serve(tool, join(place, 'host.json'), 1);
const browser = await launch();
try {
  const page = await (await browser.newContext()).newPage();
  let bytes = 0;
  let requests = 0;
  const protocol = await page.context().newCDPSession(page);
  await protocol.send('Network.enable');
  protocol.on('Network.loadingFinished', ({encodedDataLength}) => { bytes += encodedDataLength; ++requests; });
  /** A row of the table: what `act` takes until `shown` is there and nothing is under way. */
  async function measure(what, act, shown, times = rounds) {
    const rows = [];
    for (let round = 0; round < times; ++round) {
      const before = {processor: processor(host.pid), bytes, requests, at: performance.now()};
      await act(round);
      await page.locator(shown).first().waitFor();
      const took = performance.now() - before.at;
      await page.waitForLoadState('networkidle');
      rows.push([requests - before.requests, (bytes - before.bytes) / 1024, processor(host.pid) - before.processor, took]);
      await page.evaluate(() => { location.hash = '#/me'; });
      await page.locator('h1:text("My password")').waitFor();
      await page.waitForLoadState('networkidle');
    }
    const [count, size, spent, took] = rows[0].map((_, column) => median(rows.map((row) => row[column])));
    console.log(`| ${what} | ${count} | ${size.toFixed(1)} | ${spent.toFixed(1)} | ${took.toFixed(0)} |`);
  }
  const view = (address) => () => page.evaluate((hash) => { location.hash = hash; }, `#/${address}`);

  console.log('| | requests | KiB | host, processor ms | shown after ms |\n|---|---|---|---|---|');
  await measure('sign in, with the page, nothing cached', async () => {
    await page.goto(`${base}/`);
    await page.getByLabel('User').fill('admin');
    await page.getByLabel('Password').fill(password);
    await page.keyboard.press('Enter');
  }, '#main table', 1);
  await measure('users, the first 50 of 100,000', view('users'), '#main table');
  await measure('a user', view('users/user4711'), '#main h1:text("user4711")');
  await measure('a group of 200', view('groups/group7'), '#main h1:text("group7")');
  await measure('groups, the first 50 of 1,000', view('groups'), '#main table');
  await measure('filters, the first 50 of 1,000', view('filters'), '#main table');
  await measure('findings', view('findings'), '#main p', 1);
  await measure('who may GET /area7/12', async () => {
    await view('who')();
    await page.getByLabel('Target').fill('/area7/12');
    await page.keyboard.press('Enter');
  }, '#main table');
} finally {
  await browser.close();
  host.kill('SIGTERM');
  rmSync(place, {recursive: true, force: true});
}
