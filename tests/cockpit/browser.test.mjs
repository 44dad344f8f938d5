// The browser cockpit in headless Chromium against a real bridge over the fake engine: a first
// visit and pairing, the session list, history, a streaming turn, an approval and a question
// answered from the page, and a reconnect to a restarted bridge without a code.
// Env: NIMBREL_BRIDGE, FAKE_CODEX, COCKPIT_SCENARIO; COCKPIT_SCREENSHOTS names a folder for PNGs.

import assert from 'node:assert/strict';
import { request } from 'node:https';
import { mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { RunningBridge } from '../../tools/browser/bridge.mjs';
import { launch } from '../../tools/browser/chromium.mjs';

const shots = process.env.COCKPIT_SCREENSHOTS;
let bridge, browser, page, origin;

async function screenshot(name) {
  if (!shots) return;
  mkdirSync(shots, { recursive: true });
  writeFileSync(join(shots, `cockpit-${name}.png`), await page.screenshot());
}

// The engine's records of answers to its own requests, by the request's id.
const engineAnswer = (id) => bridge.engineRecords().map((r) => r.received).find((m) => m && m.id === id && !m.method);
const textOf = (selector) => `(document.querySelector(${JSON.stringify(selector)})?.innerText || '')`;

async function say(text) {
  await page.fill('#composer', text);
  await page.click('#send');
}

before(async () => {
  bridge = await new RunningBridge({ bridge: process.env.NIMBREL_BRIDGE, fakeCodex: process.env.FAKE_CODEX,
    scenario: process.env.COCKPIT_SCENARIO }).start();
  origin = `https://127.0.0.1:${bridge.port}`;
  browser = await launch();
  page = await browser.newPage();
});

after(async () => {
  if (process.env.COCKPIT_DEBUG) console.log(bridge?.log);
  await browser?.close();
  await bridge?.dispose();
});

test('served files carry the security headers, and nothing outside the page is served', async () => {
  // The path goes out as written, not normalised as a URL would be.
  const get = (path, method = 'GET') => new Promise((resolve, reject) => {
    const call = request({ host: '127.0.0.1', port: bridge.port, path, method, rejectUnauthorized: false }, (response) => {
      response.resume();
      response.on('end', () => resolve(response));
    });
    call.on('error', reject);
    call.end();
  });
  const index = await get('/');
  assert.equal(index.statusCode, 200);
  assert.match(index.headers['content-security-policy'], /script-src 'self'; .*connect-src 'self'/);
  assert.doesNotMatch(index.headers['content-security-policy'], /unsafe-inline/);
  assert.equal(index.headers['x-content-type-options'], 'nosniff');
  assert.equal((await get('/app.js')).headers['content-type'], 'text/javascript; charset=utf-8');
  for (const path of ['/../../etc/passwd', '/%2e%2e/app.js', '/cockpit/', '/index.html/', '/.rcc'])
    assert.equal((await get(path)).statusCode, 404, path);
  assert.equal((await get('/', 'POST')).statusCode, 405);
});

test('a first visit names the device and pairs with the code the computer shows', async () => {
  await page.goto(`${origin}/`);
  await page.fill('#device-name', 'Ada’s Phone');
  await page.click('#save-name');
  const code = await page.waitFor(textOf('#pairing-code'));
  assert.match(code, /^\d{6}$/);
  await bridge.waitFor(`Pairing requested by Ada’s Phone. Compare code ${code}.`);
  await screenshot('pairing');
  bridge.type(`approve ${code}`);
  await page.waitFor('document.querySelectorAll("[data-thread]").length === 2');
  assert.equal(await page.evaluate(textOf('#engine-status')), 'Codex app-server ready');
  await screenshot('sessions');
});

test('searching asks the engine for matching sessions', async () => {
  await page.fill('#search', 'dark mode');
  const asked = () => bridge.engineRecords().some((r) => r.received?.method === 'thread/list' && r.received.params.searchTerm === 'dark mode');
  for (let i = 0; i < 100 && !asked(); i++) await new Promise((resolve) => setTimeout(resolve, 50));
  assert.ok(asked());
  await page.fill('#search', '');
});

test('a session opens with its history, page by page', async () => {
  await page.click('[data-thread="thr_1"]');
  // The engine does not page by items, so the page falls back to turns, one turn per page.
  // The newest turn holds the last message alone; the one before it a message and its reply.
  await page.waitFor('document.querySelectorAll("[data-entry]").length === 1');
  await page.click('#earlier');
  await page.waitFor('document.querySelectorAll("[data-entry]").length === 3');
});

test('a turn streams into the page and ends', async () => {
  await say('stream-now');
  await page.waitFor(`${textOf('#transcript')}.includes('word5 ')`);
  await screenshot('running-turn');
  await page.waitFor(`${textOf('#transcript')}.includes('word39 ') && !document.querySelector('#stop')`);
  assert.match(await page.evaluate(textOf('#transcript')), /\$ make test/);
});

test('a running turn is steered, then stopped', async () => {
  await say('hold-now');
  await page.waitFor(`document.querySelector('#stop')`);
  await say('steer-now');
  await page.click('#stop');
  const received = (method) => bridge.engineRecords().map((r) => r.received).find((m) => m?.method === method);
  for (let i = 0; i < 100 && !received('turn/interrupt'); i++) await new Promise((resolve) => setTimeout(resolve, 50));
  assert.equal(received('turn/steer').params.expectedTurnId, 'turn-9');
  assert.deepEqual(received('turn/steer').params.input, [{ type: 'text', text: 'steer-now' }]);
  assert.deepEqual(received('turn/interrupt').params, { threadId: 'thr_1', turnId: 'turn-9' });
});

test('an approval answered on the page reaches the engine', async () => {
  await say('approve-now');
  await page.waitFor(`${textOf('#requests')}.includes('make test')`);
  await screenshot('approval');
  await page.click('#requests #accept');
  await page.waitFor(`!document.querySelector('#requests [data-request]')`);
  for (let i = 0; i < 100 && !engineAnswer(7); i++) await new Promise((resolve) => setTimeout(resolve, 50));
  assert.deepEqual(engineAnswer(7).result, { decision: 'accept' });
});

test('a question answered on the page reaches the engine', async () => {
  await say('ask-now');
  await page.waitFor(`${textOf('#requests')}.includes('Which branch')`);
  await screenshot('question');
  await page.click('#requests input[value="main"]');
  await page.click('#requests button[type=submit]');
  for (let i = 0; i < 100 && !engineAnswer(8); i++) await new Promise((resolve) => setTimeout(resolve, 50));
  assert.deepEqual(engineAnswer(8).result, { answers: { branch: { answers: ['main'] } } });
  await page.waitFor(`!document.querySelector('#requests [data-request]')`);
});

test('a new session starts in a folder with its first task', async () => {
  await page.click('#back');
  await page.click('#new-session');
  await page.fill('#new-folder', '/home/ada/src/cafe');
  await page.fill('#new-task', 'Write the menu page');
  await page.evaluate(`document.querySelector('#model').value = 'gpt-6.1-sol'; document.querySelector('#model').dispatchEvent(new Event('change'))`);
  await page.click('#start-session');
  const started = () => bridge.engineRecords().map((r) => r.received).find((m) => m?.method === 'turn/start' && m.params.threadId === 'thr_new');
  for (let i = 0; i < 100 && !started(); i++) await new Promise((resolve) => setTimeout(resolve, 50));
  const created = bridge.engineRecords().map((r) => r.received).find((m) => m?.method === 'thread/start');
  assert.equal(created.params.cwd, '/home/ada/src/cafe');
  assert.deepEqual(started().params.input, [{ type: 'text', text: 'Write the menu page' }]);
  assert.equal(started().params.model, 'gpt-6.1-sol');
});

test('usage and limits', async () => {
  await page.click('#usage');
  assert.match(await page.waitFor(`${textOf('#usage-details')}.includes('left') && ${textOf('#usage-details')}`),
    /5 hours: 58% left[\s\S]*Weekly: 88% left/);
  await page.click('#back');
  await page.click('[data-thread="thr_1"]');
});

test('after the computer restarts, the page reconnects by its stored key, without a code', async () => {
  await bridge.stop();
  await page.waitFor(`${textOf('#engine-status')} === 'Reconnecting…'`);
  await bridge.start();
  await bridge.waitFor('Authenticated Ada’s Phone from 127.0.0.1.');
  assert.doesNotMatch(bridge.err, /Pairing requested/);
  await page.waitFor(`${textOf('#engine-status')} === 'Codex app-server ready'`, 20000);
  // What the page shows is read again: the session's newest page of history.
  await page.waitFor(`document.querySelectorAll("[data-entry]").length === 1 && ${textOf('#transcript')}.includes('message 45')`);
  assert.deepEqual(page.errors, []);
});

test('a page of another origin cannot open the link', async () => {
  const stranger = await browser.newPage();
  await stranger.goto('about:blank');
  const outcome = await stranger.evaluate(`new Promise((resolve) => {
    const socket = new WebSocket('wss://127.0.0.1:${bridge.port}/sarvane?name=Stranger');
    socket.onopen = () => resolve('open');
    socket.onerror = () => resolve('refused');
  })`);
  assert.equal(outcome, 'refused');
  await stranger.send('Page.close');
  assert.doesNotMatch(bridge.err, /Stranger/);
});

test('a computer that answers with the same id and another key is refused', async () => {
  await bridge.stop();
  rmSync(join(bridge.home, 'data/nimbrel-bridge/secrets/com.halvenworks.Sarvane/device-signing-key'));
  await bridge.start();
  assert.match(await page.waitFor(textOf('#key-changed'), 20000), /key has changed/);
  await screenshot('key-changed');
  assert.doesNotMatch(bridge.err, /Authenticated|Pairing requested/);
});
