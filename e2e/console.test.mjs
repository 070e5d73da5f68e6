// Browser test of the console: the real webharbour from a private copy of the installation
// tree, seeded through bsctl and consoleuser, driven in headless Chromium by playwright-core.
//
//   node console.test.mjs <installation tree, e.g. build/tree>
//
// What only a browser shows: the pages' scripts under the host's Content-Security-Policy (a
// policy violation or script error fails the test), the code picture drawn, refusals and the
// language switch on the page, the forms, a live event and its filter, a second tab refused an
// event stream, the way back to the log-in page once the session is gone, and a clean stop of
// webharbour while a page streams. As root, webharbour and the tools run as an unprivileged user
// (WH_TEST_USER, else "nobody") that owns the copy's writable folders. Exit status 0 when every
// check passed.
import { chromium } from 'playwright-core';
import { spawn, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import assert from 'node:assert/strict';

const source = path.resolve(process.argv[2] || 'build/tree');
const CODE = 'k7m2p';            // the only verification code seeded, so the picture shows it
const PASSWORD = 'Adm1n-e2e!';
const work = fs.mkdtempSync(path.join(os.tmpdir(), 'console-e2e-'));
const tree = path.join(work, 'tree');
let host = null;
let context = null;
let hostOutput = '';

// The identity the processes of the copy run as: {} when the test does not run as root.
function servingUser() {
  if (process.getuid() !== 0) return {};
  const name = process.env.WH_TEST_USER || 'nobody';
  const id = (flag) => Number(execFileSync('id', [flag, name], { encoding: 'utf8' }).trim());
  return { uid: id('-u'), gid: id('-g') };
}
const asUser = servingUser();

function step(text) { console.log(`[e2e] ${text}`); }

// A copy of the installation without its data, logs and token files: the test starts from an
// empty database. Files are copied (not linked): the library finds its installation from the
// real path of the running binary.
function copyTree() {
  const skip = ['middle/data/', 'middle/log/', 'webharbour/hdoc/tmp/'].map((p) => path.join(source, p));
  fs.cpSync(source, tree, {
    recursive: true,
    filter: (src) => !skip.some((s) => src.startsWith(s)),
  });
  for (const d of ['middle/data', 'middle/log', 'webharbour/hdoc/tmp']) {
    fs.mkdirSync(path.join(tree, d), { recursive: true });
    if (asUser.uid !== undefined) execFileSync('chown', ['-R', `${asUser.uid}:${asUser.gid}`, path.join(tree, d)]);
  }
  if (asUser.uid !== undefined) {
    fs.chmodSync(work, 0o755);  // mkdtemp made it 0700: the serving user must get in
    fs.chmodSync(tree, 0o755);
  }
  // One event stream at a time, so that the test meets the refusal of a second one.
  const ini = path.join(tree, 'webharbour/middle.ini');
  const text = fs.readFileSync(ini, 'utf8');
  assert.match(text, /^MaxEventStreams=/m);
  fs.writeFileSync(ini, text.replace(/^MaxEventStreams=.*$/m, 'MaxEventStreams=1'));
}

function run(bin, ...args) {
  return execFileSync(path.join(tree, 'bin', bin), args, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'], ...asUser });
}

function freePort() {
  return new Promise((resolve, reject) => {
    const srv = net.createServer();
    srv.on('error', reject);
    srv.listen(0, '127.0.0.1', () => { const { port } = srv.address(); srv.close(() => resolve(port)); });
  });
}

function startHost(port) {
  return new Promise((resolve, reject) => {
    host = spawn(path.join(tree, 'bin', 'webharbour'), ['--port', String(port)], { stdio: ['ignore', 'pipe', 'pipe'], ...asUser });
    const timer = setTimeout(() => reject(new Error('webharbour did not listen within 15 s:\n' + hostOutput)), 15000);
    const collect = (d) => {
      hostOutput += d;
      if (/listening on port/.test(hostOutput)) { clearTimeout(timer); resolve(); }
    };
    host.stdout.on('data', collect);
    host.stderr.on('data', collect);
    host.once('exit', (code) => { clearTimeout(timer); reject(new Error(`webharbour exited (${code}):\n${hostOutput}`)); });
  });
}

// SIGTERM, then SIGKILL after 15 s; the exit status (null when ended by a signal).
async function stopHost() {
  if (!host) return null;
  if (host.exitCode !== null || host.signalCode !== null) return host.exitCode;
  const done = new Promise((r) => host.once('exit', (code) => r(code)));
  host.kill('SIGTERM');
  const timer = setTimeout(() => host.kill('SIGKILL'), 15000);
  const code = await done;
  clearTimeout(timer);
  return code;
}

async function expectMessage(page, pattern) {
  await page.waitForFunction((src) => new RegExp(src).test(document.getElementById('msg').textContent),
    pattern.source, { timeout: 10000 });
}

// Fills the log-in form for admin and sends it.
async function logIn(page, password, code) {
  await page.fill('#user', 'admin');
  await page.fill('#password', password);
  await page.fill('#code', code);
  await page.click('#login-btn');
}

const showsPicture = (page) => page.waitForFunction(() => document.getElementById('code-img').naturalWidth > 0);
const streams = (page) => page.waitForFunction(() => /Connected/.test(document.getElementById('stream-state').textContent));

async function main() {
  copyTree();
  step(`tree ${tree}`);
  run('bsctl', 'code', 'seed', CODE);
  run('bsctl', 'company', 'add', 'demo', 'qv_companytype:int32=1');
  run('bsctl', 'login', 'add', 'admin', 'demo');
  run('consoleuser', 'set', 'admin', PASSWORD);
  const port = await freePort();
  await startHost(port);
  const base = `http://127.0.0.1:${port}`;
  step(`webharbour on ${base}`);

  const profile = fs.mkdtempSync(path.join(work, 'profile-'));
  context = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  const page = context.pages()[0] || await context.newPage();
  const pageErrors = [];
  const watchPage = (p) => {
    p.on('pageerror', (e) => pageErrors.push(e.message));
    p.on('console', (m) => { if (/Content.Security.Policy/i.test(m.text())) pageErrors.push(m.text()); });
  };
  watchPage(page);

  // The root leads to the log-in page, whose picture draws the seeded code; a wrong password is
  // refused in words (Chinese first: no language chosen yet).
  await page.goto(base + '/');
  await page.waitForURL('**/console/login.html');
  await showsPicture(page);
  await logIn(page, 'wrong-password', CODE);
  await expectMessage(page, /用户名或密码错误/);
  step('log-in page with the code picture; a wrong password refused in words');

  await page.click('#lang');
  assert.equal(await page.textContent('label span[data-t="user"]'), 'User name');
  await logIn(page, PASSWORD, CODE.toUpperCase());  // codes are read without regard to case
  await page.waitForURL('**/console/app.html');
  await page.waitForFunction(() => document.getElementById('who').textContent === 'admin @ demo');
  step('logged in (English)');

  // A company with parameters, a CCU and a login name, each through its form.
  await page.fill('#company-id', 'acme-e2e');
  await page.fill('#company-params', 'region=north\nlevel=gold');
  await page.click('#company-save');
  await expectMessage(page, /^Saved$/);
  const row = page.locator('tr[data-company="acme-e2e"]');
  await row.waitFor();
  assert.match(await row.textContent(), /region=north/);
  await page.selectOption('#ccu-company', 'acme-e2e');
  await page.fill('#ccu-id', 'ccu-1');
  await page.fill('#ccu-label', 'rack one');
  await page.fill('#ccu-useddev', '7');
  await page.click('#ccu-save');
  await page.waitForFunction(() => /ccu-1 rack one/.test(
    document.querySelector('tr[data-company="acme-e2e"]')?.textContent || ''));
  await page.click('button[data-tab="logins"]');
  await page.fill('#ln-name', 'bob');
  await page.selectOption('#ln-company', 'acme-e2e');
  await page.click('#ln-save');
  await page.locator('tr[data-login="bob"]').waitFor();
  step('company, CCU and login name added through the forms');

  // A live event pushed by eventgen arrives on the event page.
  await page.click('button[data-tab="events"]');
  await streams(page);
  // Its text holds markup, which must reach the page as text: no element, no script run.
  const marker = `<img src=x onerror="window.__x=1">e2e event ${Date.now()}`;
  run('eventgen', '--company', 'acme-e2e', '--host', 'web-7', '--severity', 'critical', '--message', marker);
  await page.waitForFunction((m) => [...document.querySelectorAll('#event-table tbody tr')]
    .some((r) => r.textContent.includes(m) && r.textContent.includes('web-7')), marker, { timeout: 15000 });
  const visibleRows = () => page.evaluate((m) => [...document.querySelectorAll('#event-table tbody tr')]
    .filter((r) => !r.hidden && r.textContent.includes(m)).length, marker);
  await page.fill('#event-filter', 'no-such-host');
  assert.equal(await visibleRows(), 0, 'the filter hides events that do not match');
  await page.fill('#event-filter', 'WEB-7');
  assert.equal(await visibleRows(), 1, 'and shows those that do, regardless of case');
  assert.equal(await page.evaluate(() => document.querySelectorAll('#event-table img').length +
    (window.__x === undefined ? 0 : 1)), 0, 'the event text was taken as markup');
  step('live event arrived as text and the filter works');

  // A second tab wanting the events too: the host allows one stream here, so the tab is refused
  // and says so; when the session ends it must go back to log in as well.
  const watcher = await context.newPage();
  watchPage(watcher);
  await watcher.goto(base + '/console/app.html');
  await watcher.click('button[data-tab="events"]');
  await watcher.waitForFunction(() => /refused the event stream/.test(document.getElementById('stream-state').textContent));

  // Log-out, then the console sends the visitor back to log in, saying why.
  await page.click('#logout');
  await page.waitForURL('**/console/login.html?reason=logout');
  await expectMessage(page, /You have logged out/);
  await page.goto(base + '/console/app.html');
  await page.waitForURL('**/console/login.html?reason=timeout');
  await expectMessage(page, /session timed out/);
  await watcher.waitForURL('**/console/login.html?reason=timeout', { timeout: 30000 });
  await watcher.close();
  step('logged out; the pages and the other tab go back to log in');

  // webharbour stops cleanly while an event page is streaming.
  await page.goto(base + '/console/login.html');
  await showsPicture(page);
  await logIn(page, PASSWORD, CODE);
  await page.waitForURL('**/console/app.html');
  await page.click('button[data-tab="events"]');
  await streams(page);
  const stopStart = Date.now();
  const status = await stopHost();
  assert.equal(status, 0, 'webharbour exits 0 on SIGTERM with a stream open');
  assert.ok(Date.now() - stopStart < 10000, 'and within ten seconds');
  step('webharbour stopped cleanly with an open event stream');

  assert.deepEqual(pageErrors, [], 'no script errors in the pages');
}

let failed = false;
try {
  await main();
  step('PASSED');
} catch (e) {
  failed = true;
  console.error('[e2e] FAILED:', e && e.stack ? e.stack : e);
  console.error('[e2e] webharbour output:\n' + hostOutput);
} finally {
  if (context) await context.close().catch(() => {});
  await stopHost();
  if (!process.env.E2E_KEEP && !failed) fs.rmSync(work, { recursive: true, force: true });
  else console.log(`[e2e] kept ${work}`);
}
process.exit(failed ? 1 : 0);
