// The page in a real browser, against the real program.
//   node page.mjs PERENNA_ACCESS

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {launch, serve} from './browser.mjs';

const tool = process.argv[2];
const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const place = mkdtempSync(join(tmpdir(), 'perenna-page-'));
const password = 'pässword of "admin"'; // not of ASCII alone
const run = (words, input = '') => execFileSync(tool, ['--config', join(place, 'host.json'), ...words], {input});

function makeDirectory() {
  execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-subj', '/CN=localhost', '-keyout', join(place, 'host.key'), '-out', join(place, 'host.pem')], {stdio: 'ignore'});
  execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-subj', '/CN=carol', '-keyout', join(place, 'carol.key'), '-out', join(place, 'carol.pem')], {stdio: 'ignore'});
  writeFileSync(join(place, 'host.json'), JSON.stringify({
    LocalAccessManager: {DatabaseFilename: 'access.db'},
    Host: {Listen: ['127.0.0.1:0', 'https:127.0.0.1:0'], TLS: {Certificate: 'host.pem', Key: 'host.key', ClientCertificates: 'optional'}}}));
  run(['init', '--administrators', 'administrators', '--password-stdin'], `${password}\n`);
  const directory = JSON.parse(run(['export', '-']));
  for (let i = 0; i < 10000; ++i) {
    directory.users.push({user_id: `user${i}`, auth_method: 'plain_pw', auth_value: 'x', create_date: '2026-01-31T12:00:00+00:00', create_user: 'admin'});
  }
  directory.users.push({...directory.users.at(-1), user_id: '<b>odd</b> id'});
  writeFileSync(join(place, 'directory.json'), JSON.stringify(directory));
  run(['import', join(place, 'directory.json')]);
  run(['tune']);
  run(['user', 'add', 'carol', '--certificate', join(place, 'carol.pem'), '--group', 'administrators']);
}

/** A context that minds what the page does: its errors, its requests, its headers. */
async function open(browser, base, options = {}) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  page.setDefaultTimeout(10000);
  page.faults = [];
  page.on('console', (message) => message.type() === 'error' && !/status of 4(0|1|2)\d/.test(message.text()) && page.faults.push(message.text()));
  page.on('pageerror', (error) => page.faults.push(String(error)));
  page.on('request', (request) => request.url().startsWith(`${base}/`) || /^(blob|data):/.test(request.url()) || page.faults.push(`asked ${request.url()}`));
  page.on('response', (response) => {
    const fields = response.headers();
    if (response.status() === 401 && /^basic/i.test(fields['www-authenticate'] ?? '')) {
      page.faults.push('the browser would open its own dialog');
    }
    if (/html|javascript|css/.test(fields['content-type'] ?? '') && fields['content-security-policy'] !== "default-src 'self'") {
      page.faults.push(`no policy: ${response.url()}`);
    }
  });
  await page.goto(`${base}/`);
  return page;
}

async function signIn(page, word = password) {
  await page.getByLabel('User').waitFor();
  await page.keyboard.type('admin');
  await page.keyboard.press('Tab');
  await page.keyboard.type(word);
  await page.keyboard.press('Enter');
}

async function view(page, hash, heading) {
  await page.evaluate((to) => { location.hash = to; }, `#/${hash}`);
  await page.getByRole('heading', {level: 1, name: heading}).waitFor();
}

const says = (page, text) => page.getByRole('status').filter({hasText: text}).waitFor();

async function users(page) {
  await view(page, 'users', 'Users');
  await page.getByText('1 to 50 of 10003').waitFor();
  await page.getByRole('button', {name: 'Next'}).click();
  await page.getByText('51 to 100 of 10003').waitFor();
  await page.getByLabel('Search users').fill('USER999');
  await page.getByText('1 to 11 of 11').waitFor();
  await page.getByLabel('Search users').fill('<b>');
  await page.getByRole('link', {name: '<b>odd</b> id'}).waitFor(); // as text
  await page.getByText('New user').click();
  await page.getByLabel('User id').fill('alice');
  await page.getByLabel('Password', {exact: true}).fill('pw');
  await page.getByRole('button', {name: 'Create user'}).click();
  await says(page, 'Created the user alice');
  await page.getByRole('button', {name: 'Create user'}).click(); // without an id: the form itself refuses
  await page.getByLabel('User id').fill('alice');
  await page.getByLabel('Password', {exact: true}).fill('pw');
  await page.getByRole('button', {name: 'Create user'}).click();
  await page.getByRole('alert').filter({hasText: 'there is a user "alice" already'}).waitFor();
}

async function groupsAndFilters(page) {
  await view(page, 'groups', 'Groups');
  await page.getByText('New group').click();
  await page.getByLabel('Group id').fill('readers');
  await page.getByRole('button', {name: 'Create group'}).click();
  await says(page, 'Created the group readers');
  await page.getByRole('link', {name: 'readers'}).click();
  await page.getByRole('heading', {name: 'Group readers'}).waitFor();
  await page.getByLabel('Add user').fill('alice');
  await page.getByRole('button', {name: 'Add', exact: true}).click();
  await page.getByRole('button', {name: 'Take alice out of readers'}).waitFor();
  await page.getByText('New filter').click();
  await page.getByLabel('Pattern').fill('^/drafts');
  await page.getByLabel('Action').selectOption('Deny');
  await page.getByRole('button', {name: 'Create filter'}).click();
  await page.getByRole('dialog').filter({hasText: 'nobody\'s rights change'}).getByRole('button', {name: 'Create'}).click();
  await page.getByRole('button', {name: 'Delete Deny GET ^/drafts'}).waitFor();
  await view(page, 'filters', 'Filters');
  await page.getByText('New filter').click();
  await page.getByLabel('Group', {exact: true}).fill('readers');
  await page.getByLabel('Pattern').fill('(');
  await page.getByRole('button', {name: 'Create filter'}).click();
  await page.getByRole('alert').filter({hasText: 'not a POSIX extended regular expression'}).waitFor();
  await page.getByLabel('Pattern').fill('^/drafts');
  await page.getByRole('button', {name: 'Create filter'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Create'}).click();
  await says(page, 'Created: Allow GET ^/drafts for readers');
  await view(page, 'groups/readers', 'Group readers');
  await page.getByText('overruled by a Deny of readers').waitFor();
}

/** What a newcomer does: why is alice refused, and grant it. By keyboard alone. */
async function checkAndGrant(page) {
  await view(page, 'check', 'Check');
  await page.getByLabel('Target').waitFor();
  const key = (name) => page.keyboard.press(name);
  await key('Tab');
  await page.keyboard.type('alice');
  await key('Tab');
  await key('Tab');
  await page.keyboard.type('/articles/7');
  await key('Enter');
  await page.getByText('by default: no Allow or Deny filter').waitFor();
  const grant = page.getByRole('button', {name: 'Allow it'}).first();
  for (let i = 0; i < 40 && !await grant.evaluate((button) => button === document.activeElement); ++i) {
    await key('Tab');
  }
  await key('Enter');
  await page.getByRole('dialog').filter({hasText: 'alice'}).getByRole('cell', {name: '/articles/7'}).waitFor();
  await key('Tab');
  await key('Enter');
  await page.getByText('Allow of group "readers", pattern "^/articles/7$"').waitFor();
  await page.getByLabel('Target').fill('/drafts');
  await page.getByRole('button', {name: 'Check'}).click();
  await page.getByRole('button', {name: 'Delete this Deny'}).click();
  await page.getByRole('dialog').getByRole('cell', {name: '/drafts'}).first().waitFor();
  await page.getByRole('dialog').getByRole('button', {name: 'Delete'}).click();
  await page.locator('.verdict.good').waitFor();
  await view(page, 'who', 'Who may');
  await page.getByLabel('Target').fill('/articles/7');
  await page.getByRole('button', {name: 'Show'}).click();
  await page.getByText('1 user.').waitFor();
  await page.getByRole('link', {name: 'alice'}).click();
  await page.locator('.verdict.good').waitFor();
}

async function rest(page) {
  await view(page, 'matrix', 'Matrix');
  await page.getByRole('img', {name: /regions of targets: .* changed, 0 not found out/}).waitFor();
  await page.getByLabel('By').selectOption('groups');
  await page.getByRole('button', {name: 'Show'}).click();
  await page.getByRole('row', {name: 'readers'}).getByRole('cell', {name: 'GET', exact: true}).first().waitFor();
  await view(page, 'findings', 'Findings');
  await page.getByText('credential plain').waitFor();
  await view(page, 'decisions', 'Decisions');
  await page.getByRole('img', {name: /Outcomes from .* allowed/}).waitFor();
  await view(page, 'import', 'Import');
  const [download] = await Promise.all([page.waitForEvent('download'), page.getByRole('button', {name: 'Export without credentials'}).click()]);
  const directory = JSON.parse(readFileSync(await download.path(), 'utf8'));
  directory.users = directory.users.filter((user) => !/^user/.test(user.user_id));
  directory.groups[0].group_name = 'Renamed';
  await page.getByLabel('File').setInputFiles({name: 'd.json', mimeType: 'application/json', buffer: Buffer.from(JSON.stringify(directory))});
  await page.getByRole('button', {name: 'Show the difference'}).click();
  await page.getByText('users: 0 added, 10000 removed').waitFor();
  await page.getByText('groups: 0 added, 0 removed, 1 changed').waitFor();
  await page.getByRole('button', {name: 'Replace the directory'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Replace'}).click();
  await page.getByText('4 users').waitFor();
  await view(page, 'users/alice', 'User alice');
  await page.getByRole('button', {name: 'Take alice out of readers'}).click();
  await page.getByText('In no group').waitFor();
  await page.getByRole('button', {name: 'Delete alice'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Delete'}).click();
  await says(page, 'Deleted the user alice');
  await view(page, 'groups/readers', 'Group readers');
  await page.getByRole('button', {name: 'Delete readers'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Delete'}).click();
  await says(page, 'Deleted the group readers');
  await view(page, 'users/carol', 'User carol');
  await page.getByRole('button', {name: 'Delete carol'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Delete'}).click();
  await says(page, 'Deleted the user carol');
  await view(page, 'users/admin', 'User admin'); // the last who could administer
  await page.getByRole('button', {name: 'Take admin out of administrators'}).click();
  await page.getByRole('dialog').filter({hasText: 'nobody could administer'}).getByRole('button', {name: 'Cancel'}).click();
  await page.getByRole('button', {name: 'Take admin out of administrators'}).waitFor();
  await view(page, 'me', 'My password');
  await page.getByLabel('Current password').fill('wrong');
  await page.getByLabel('New password').fill('n');
  await page.getByLabel('The same once more').fill('n');
  await page.getByRole('button', {name: 'Change password'}).click();
  await page.getByRole('alert').filter({hasText: 'the current password is wrong'}).waitFor();
}

/** No serious finding of axe in any view, in either colour scheme, and nothing wider than a narrow screen. */
async function accessible(page) {
  for (const colorScheme of ['light', 'dark']) {
    await page.emulateMedia({colorScheme});
    for (const [hash, heading] of [['users', 'Users'], ['users/alice', 'User alice'], ['groups', 'Groups'], ['groups/readers', 'Group readers'], ['filters', 'Filters'],
      ['check?user=alice&method=PUT&url=/articles/7', 'Check'], ['who', 'Who may'], ['matrix', 'Matrix'], ['findings', 'Findings'], ['decisions', 'Decisions'], ['import', 'Import'], ['me', 'My password']]) {
      await view(page, hash, heading);
      await page.waitForLoadState('networkidle');
      await page.evaluate(axe);
      const {violations} = await page.evaluate(() => globalThis.axe.run());
      assert.deepEqual(violations.filter((each) => ['serious', 'critical'].includes(each.impact)).map((each) => `${hash} ${colorScheme}: ${each.help} ${each.nodes[0].html}`), []);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth - document.documentElement.clientWidth), 0, `${hash} is too wide`);
    }
  }
}

makeDirectory();
const {host, urls: [base, secure]} = await serve(tool, join(place, 'host.json'), 2);
const browser = await launch();
try {
  const page = await open(browser, base, {viewport: {width: 400, height: 800}});
  await signIn(page, 'wrong');
  await page.getByRole('alert').filter({hasText: 'Unknown user or wrong password'}).waitFor();
  await page.reload();
  await signIn(page);
  await page.getByRole('heading', {level: 1, name: 'Users'}).waitFor();
  for (const step of [users, groupsAndFilters, checkAndGrant, accessible, rest]) {
    const begin = Date.now();
    await step(page);
    console.log(`${step.name}: ${((Date.now() - begin) / 1000).toFixed(1)} s`);
  }
  await page.getByRole('button', {name: 'Sign out'}).click();
  await page.getByRole('heading', {name: 'Sign in'}).waitFor();
  assert.deepEqual(page.faults, []);

  run(['user', 'add', 'carol', '--certificate', join(place, 'carol.pem'), '--group', 'administrators']);
  const certified = await open(browser, secure, {ignoreHTTPSErrors: true,
    clientCertificates: [{origin: secure, certPath: join(place, 'carol.pem'), keyPath: join(place, 'carol.key')}]});
  await certified.getByRole('heading', {level: 1, name: 'Users'}).waitFor(); // asked for nothing
  await certified.getByText('carol').first().waitFor();
  assert.deepEqual(certified.faults, []);
} finally {
  await browser.close();
  host.kill('SIGTERM');
  rmSync(place, {recursive: true, force: true});
}
