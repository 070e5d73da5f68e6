// Browser test of the console: the real webharbour from a private copy of the installation
// tree, seeded through bsctl and consoleuser, driven in headless Chromium by playwright-core.
//
//   node console.test.mjs <installation tree, e.g. build/tree>
//
// webharbour refuses to run as root: when the test runs as root, webharbour and the tools run as
// an unprivileged user (WH_TEST_USER, else "nobody") that owns the copy's writable folders.
//
// Every page is checked under the host's Content-Security-Policy (no inline script): a policy
// violation reported by the browser fails the test.
//
// Log-in refusals (wrong password, wrong code) and the log-in with the seeded code,
// the language switch, a company with a CCU and a login name added through the pages, a live
// event from eventgen arriving on the event page, log-out, the way back to the log-in page with a
// message once the session is gone (in a second tab too, after its event stream was refused as
// one too many), and a clean stop of webharbour while
// an event page streams. Exit status 0 when every check passed.
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
let currentPage = null;  // for a picture of the screen when a check fails
let hostOutput = '';

// The identity the processes of the copy run as: {} when the test does not run as root.
function servingUser() {
  if (process.getuid() !== 0) return {};
  const name = process.env.WH_TEST_USER || 'nobody';
  const id = (flag) => Number(execFileSync('id', [flag, name], { encoding: 'utf8' }).trim());
  return { uid: id('-u'), gid: id('-g') };
}
const asUser = servingUser();

function chownTree(dir, { uid, gid }) {
  fs.chownSync(dir, uid, gid);
  for (const e of fs.readdirSync(dir, { withFileTypes: true })) {
    const p = path.join(dir, e.name);
    if (e.isDirectory()) chownTree(p, { uid, gid });
    else fs.chownSync(p, uid, gid);
  }
}

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
    if (asUser.uid !== undefined) chownTree(path.join(tree, d), asUser);
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
  currentPage = page;
  const pageErrors = [];
  const watchPage = (p) => {
    p.on('pageerror', (e) => pageErrors.push(e.message));
    p.on('console', (m) => { if (/Content.Security.Policy/i.test(m.text())) pageErrors.push(m.text()); });
  };
  watchPage(page);

  // The root leads to the log-in page, whose picture draws the seeded code.
  const picture = page.waitForResponse((r) => r.url().includes('/api/code'));
  const loginPage = page.waitForResponse((r) => r.url().endsWith('/console/login.html'));
  await page.goto(base + '/');
  await page.waitForURL('**/console/login.html');
  const policy = (await loginPage).headers()['content-security-policy'] || '';
  assert.match(policy, /script-src 'self';/, 'the page carries the security policy');
  assert.match(policy, /frame-ancestors 'none'/);
  const svg = await (await picture).text();
  assert.ok(svg.includes('<path') && !svg.includes('<text') && !svg.includes(CODE),
    'the picture draws the code as strokes, never as text');
  await page.waitForFunction(() => document.getElementById('code-img').naturalWidth > 0);
  step('log-in page with the code picture, under the security policy');

  // Refusals are shown in words (Chinese first: no language chosen yet).
  await page.fill('#user', 'admin');
  await page.fill('#password', 'wrong-password');
  await page.fill('#code', CODE);
  await page.click('#login-btn');
  await expectMessage(page, /用户名或密码错误/);
  await page.fill('#password', PASSWORD);
  await page.fill('#code', 'zzzz');
  await page.click('#login-btn');
  await expectMessage(page, /验证码错误/);
  step('wrong password and wrong code refused in words');

  await page.click('#lang');
  assert.equal(await page.textContent('label span[data-t="user"]'), 'User name');
  await page.fill('#password', PASSWORD);
  await page.fill('#code', CODE.toUpperCase());  // codes are read without regard to case
  await page.click('#login-btn');
  await page.waitForURL('**/console/app.html');
  await page.waitForFunction(() => document.getElementById('who').textContent === 'admin @ demo');
  const cookies = await context.cookies(base);
  const session = cookies.find((c) => c.name === 'qvsessionid');
  assert.ok(session && session.httpOnly && session.sameSite === 'Strict', 'session cookie HttpOnly, SameSite=Strict');
  assert.match(run('bsctl', 'session', 'list'), /admin/, 'the session is persisted for the other processes');
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
  await page.fill('#company-id', 'acme-e2e');
  await page.click('#company-save');
  await expectMessage(page, /exists already/);  // adding the same id again is refused in words
  await page.click('button[data-tab="logins"]');
  await page.fill('#ln-name', 'bob');
  await page.selectOption('#ln-company', 'acme-e2e');
  await page.click('#ln-save');
  await page.locator('tr[data-login="bob"]').waitFor();
  const stored = run('bsctl', 'company', 'show', 'acme-e2e');
  assert.match(stored, /region/);
  assert.match(stored, /ccu-1/);
  assert.match(run('bsctl', 'login', 'show', 'bob'), /acme-e2e/);
  step('company, CCU and login name added and stored');

  // A live event pushed by eventgen arrives on the event page.
  await page.click('button[data-tab="events"]');
  await page.waitForFunction(() => /Connected/.test(document.getElementById('stream-state').textContent));
  const marker = `e2e event ${Date.now()}`;
  run('eventgen', '--company', 'acme-e2e', '--host', 'web-7', '--severity', 'critical', '--message', marker);
  await page.waitForFunction((m) => [...document.querySelectorAll('#event-table tbody tr')]
    .some((r) => r.textContent.includes(m) && r.textContent.includes('web-7')), marker, { timeout: 15000 });
  const visibleRows = () => page.evaluate((m) => [...document.querySelectorAll('#event-table tbody tr')]
    .filter((r) => !r.hidden && r.textContent.includes(m)).length, marker);
  await page.fill('#event-filter', 'no-such-host');
  assert.equal(await visibleRows(), 0, 'the filter hides events that do not match');
  await page.fill('#event-filter', 'WEB-7');
  assert.equal(await visibleRows(), 1, 'and shows those that do, regardless of case');
  step('live event arrived and the filter works');

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
  assert.doesNotMatch(run('bsctl', 'session', 'list'), /admin/, 'the persisted session is gone');
  await page.goto(base + '/console/app.html');
  await page.waitForURL('**/console/login.html?reason=timeout');
  await expectMessage(page, /session timed out/);
  const refused = await (await page.request.get(base + '/api/companies')).json();
  assert.equal(refused.status, 'SessionTimeOut');
  await watcher.waitForURL('**/console/login.html?reason=timeout', { timeout: 30000 });
  await watcher.close();
  step('logged out; the pages, the other tab\'s event stream and the handlers refuse the old session');

  // webharbour stops cleanly while an event page is streaming.
  const again = page.waitForResponse((r) => r.url().includes('/api/code'));
  await page.goto(base + '/console/login.html');
  await again;
  await page.fill('#user', 'admin');
  await page.fill('#password', PASSWORD);
  await page.fill('#code', CODE);
  await page.click('#login-btn');
  await page.waitForURL('**/console/app.html');
  await page.click('button[data-tab="events"]');
  await page.waitForFunction(() => /Connected/.test(document.getElementById('stream-state').textContent));
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
  if (currentPage) {
    const shot = path.join(work, 'failure.png');
    await currentPage.screenshot({ path: shot, fullPage: true }).then(
      () => console.error(`[e2e] screen at the failure: ${shot}`), () => {});
  }
} finally {
  if (context) await context.close().catch(() => {});
  await stopHost();
  if (!process.env.E2E_KEEP && !failed) fs.rmSync(work, { recursive: true, force: true });
  else console.log(`[e2e] kept ${work}`);
}
process.exit(failed ? 1 : 0);
