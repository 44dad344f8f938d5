// First visits to the browser cockpit in headless Chromium against a real bridge: every fresh
// visit loads whole under the limits for hosts that have not paired, and a service worker that a
// look-alike page left at the bridge's address does not survive the real page's next load.
// Env: NIMBREL_BRIDGE, FAKE_CODEX, COCKPIT_SCENARIO.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer } from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { RunningBridge } from '../../tools/browser/bridge.mjs';
import { launch, newPage } from '../../tools/browser/chromium.mjs';

let bridge, browser, origin;

before(async () => {
  bridge = await new RunningBridge({ bridge: process.env.NIMBREL_BRIDGE, fakeCodex: process.env.FAKE_CODEX,
    scenario: process.env.COCKPIT_SCENARIO }).start();
  origin = `https://127.0.0.1:${bridge.port}`;
  browser = await launch();
});

after(async () => {
  await browser?.close();
  await bridge?.dispose();
});

// A visit as a new user makes it: a context of its own, no cache, no service worker, named and
// asking to pair. Its screen once the page has loaded and greeted the bridge: the code, or the
// refusal that a second request from one address within half a minute gets.
async function visit() {
  const page = await newPage(browser, { serviceWorkers: 'block' });
  await page.goto(`${origin}/`);
  await page.locator('#device-name').waitFor({ timeout: 20000 });
  await page.click('#save-name');
  await page.locator('#pairing-code, #pairing-rejected').first().waitFor({ timeout: 20000 });
  return page;
}

test('twenty fresh visits all load, twice in a row, while the visit before lingers', async () => {
  for (let round = 1; round <= 2; round += 1) {
    let previous;
    for (let i = 1; i <= 20; i += 1) {
      const page = await visit().catch((error) => {
        throw new Error(`round ${round}, visit ${i}: ${error.message}`);
      });
      assert.deepEqual(page.errors.filter((e) => !/WebSocket/.test(e)), [], `round ${round}, visit ${i}`);
      await previous?.context().close();
      previous = page;
    }
    await previous.context().close();
  }
  assert.doesNotMatch(bridge.err, /Rejected malformed message/);
});

test('a worker that a look-alike page registered is gone after the real page loads again', async () => {
  // Another machine answers at the bridge's address for a while and registers a worker of its own
  // that serves its page.
  const keys = mkdtempSync(join(tmpdir(), 'look-alike-'));
  execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes',
    '-keyout', join(keys, 'key.pem'), '-out', join(keys, 'cert.pem'), '-days', '1', '-subj', '/CN=look-alike'],
  { stdio: 'ignore' });
  const files = {
    '/': ['text/html', '<!doctype html><title>Look-alike</title><p id="look-alike">Look-alike</p><script src="/look.js"></script>'],
    '/look.js': ['text/javascript', "navigator.serviceWorker.register('/evil-sw.js', { scope: '/' });"],
    '/evil-sw.js': ['text/javascript', `self.addEventListener('install', () => self.skipWaiting());
self.addEventListener('activate', (event) => event.waitUntil(self.clients.claim()));
self.addEventListener('fetch', (event) => {
  if (event.request.mode === 'navigate') event.respondWith(new Response(
    '<!doctype html><title>Look-alike</title><p id="look-alike">Look-alike, from its worker</p>',
    { headers: { 'Content-Type': 'text/html' } }));
});`],
  };
  await bridge.stop();
  const lookAlike = createServer({ key: readFileSync(join(keys, 'key.pem')), cert: readFileSync(join(keys, 'cert.pem')) },
    (request, response) => {
      const file = files[request.url];
      response.writeHead(file ? 200 : 404, { 'Content-Type': file ? file[0] : 'text/plain' });
      response.end(file ? file[1] : 'Not found');
    });
  await new Promise((resolve) => lookAlike.listen(bridge.port, '127.0.0.1', resolve));
  const page = await newPage(browser);
  const workers = () => page.evaluate(async () =>
    (await navigator.serviceWorker.getRegistrations()).map((r) => (r.active || r.waiting || r.installing)?.scriptURL ?? ''));
  try {
    await page.goto(`${origin}/`);
    await page.waitForFunction(async () => (await navigator.serviceWorker.getRegistration())?.active);
    assert.deepEqual(await workers(), [`${origin}/evil-sw.js`]);
  } finally {
    lookAlike.closeAllConnections();
    await new Promise((resolve) => lookAlike.close(resolve));
    rmSync(keys, { recursive: true, force: true });
  }

  // The bridge is back: the worker answers the next load from itself, the browser then checks it
  // against the bridge, which hands it a worker that removes itself.
  await bridge.start();
  await page.goto(`${origin}/`);
  const deadline = Date.now() + 60000;
  let left = await workers().catch(() => ['navigating']);
  while (left.some((url) => url.endsWith('/evil-sw.js') || url === 'navigating') && Date.now() < deadline) {
    await new Promise((resolve) => setTimeout(resolve, 250));
    left = await workers().catch(() => ['navigating']);
  }
  assert.ok(!left.some((url) => url.endsWith('/evil-sw.js')), `workers left: ${left}`);
  // The page loads from the bridge again. The removed worker reloads the pages it served, which may
  // cut a load begun meanwhile short: that load is begun again.
  for (let attempt = 1; ; attempt += 1) {
    try {
      await page.goto(`${origin}/`);
      break;
    } catch (error) {
      if (attempt === 3 || !/interrupted by another navigation/.test(error.message)) throw error;
    }
  }
  await page.locator('#device-name').waitFor();
  await page.context().close();
});
