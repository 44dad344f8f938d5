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
import { launch, newPage } from '../../tools/browser/chromium.mjs';
import { Relay } from '../../tools/browser/relay.mjs';

const shots = process.env.COCKPIT_SCREENSHOTS;
let bridge, browser, page, origin;

async function screenshot(name) {
  if (!shots) return;
  mkdirSync(shots, { recursive: true });
  writeFileSync(join(shots, `cockpit-${name}.png`), await page.screenshot());
}

// How long a wait may take before the test gives up: only a broken test waits this long, however
// busy the machine.
const patience = 60000;

// The engine's answer to its own request, by the request's id, and a call it received; once it has it.
const engineAnswer = (id) => bridge.engineReceived((m) => m.id === id && !m.method);
const engineCall = (test) => bridge.engineReceived((m) => typeof m.method === 'string' && test(m));
// Waits until an element shows the text (a string it contains, or a pattern), or is gone.
const shows = (selector, text, on = page) => on.locator(selector, { hasText: text }).first().waitFor();
const gone = (selector, on = page) => on.locator(selector).first().waitFor({ state: 'detached' });
const untilCount = (selector, n) => page.waitForFunction(([selector, n]) => document.querySelectorAll(selector).length === n,
  [selector, n]);

async function say(text, on = page) {
  await on.fill('#composer', text);
  await on.click('#send');
}

// Resolves once a page of the session's newest history reaches the page on a connection it opens
// from now on (the page reads it again after a reconnect).
function newestHistoryArrives(on, limitMs = patience) {
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error('The newest history never reached the page again')), limitMs);
    on.on('websocket', (socket) => socket.on('framereceived', (frame) => {
      if (!String(frame.payload).includes('"item-45"')) return;
      clearTimeout(timer);
      resolve();
    }));
  });
}

// A new browser at address, named, paired through the console.
async function pairedPage(address, name) {
  const fresh = await newPage(browser);
  await fresh.goto(`${address}/`);
  await fresh.fill('#device-name', name);
  await fresh.click('#save-name');
  await shows('#pairing-code', /^\d{6}$/, fresh);
  const code = await fresh.locator('#pairing-code').innerText();
  await bridge.waitFor(`Compare code ${code}.`);
  bridge.type(`approve ${code}`);
  await fresh.locator('[data-thread]').first().waitFor();
  return fresh;
}

before(async () => {
  bridge = await new RunningBridge({ bridge: process.env.NIMBREL_BRIDGE, fakeCodex: process.env.FAKE_CODEX,
    scenario: process.env.COCKPIT_SCENARIO }).start();
  origin = `https://127.0.0.1:${bridge.port}`;
  browser = await launch();
  page = await newPage(browser);
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
      let body = '';
      response.setEncoding('latin1');
      response.on('data', (chunk) => { body += chunk; });
      response.on('end', () => resolve(Object.assign(response, { body })));
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
  // What installs the page as an app, with the same headers; the worker carries the files' digest.
  assert.match(index.headers['content-security-policy'], /worker-src 'self'; .*manifest-src 'self'|manifest-src 'self'; worker-src 'self'/);
  for (const [path, type] of [['/manifest.webmanifest', 'application/manifest+json'], ['/sw.js', 'text/javascript; charset=utf-8'],
    ['/icon-192.png', 'image/png'], ['/icon-512.png', 'image/png'], ['/icon-180.png', 'image/png'], ['/icon.svg', 'image/svg+xml']]) {
    const file = await get(path);
    assert.equal(file.statusCode, 200, path);
    assert.equal(file.headers['content-type'], type, path);
    assert.equal(file.headers['content-security-policy'], index.headers['content-security-policy'], path);
    assert.equal(file.headers['x-content-type-options'], 'nosniff', path);
  }
  const manifest = JSON.parse((await get('/manifest.webmanifest')).body);
  assert.equal(manifest.display, 'standalone');
  assert.deepEqual(manifest.icons.map((icon) => icon.sizes), ['any', '192x192', '512x512', '512x512']);
  assert.match((await get('/sw.js')).body, /const version = '[0-9a-f]{16}';/);
  for (const path of ['/../../etc/passwd', '/%2e%2e/app.js', '/cockpit/', '/index.html/', '/.rcc'])
    assert.equal((await get(path)).statusCode, 404, path);
  assert.equal((await get('/', 'POST')).statusCode, 405);
});

test('a first visit names the device and pairs with the code the computer shows', async () => {
  await page.goto(`${origin}/`);
  await page.fill('#device-name', 'Ada’s Phone');
  await page.click('#save-name');
  await shows('#pairing-code', /^\d{6}$/);
  const code = await page.locator('#pairing-code').innerText();
  await bridge.waitFor(`Pairing requested by Ada’s Phone. Compare code ${code}.`);
  await screenshot('pairing');
  bridge.type(`approve ${code}`);
  await untilCount('[data-thread]', 2);
  assert.equal(await page.locator('#engine-status').innerText(), 'Codex app-server ready');
  await screenshot('sessions');
});

test('searching asks the engine for matching sessions', async () => {
  await page.fill('#search', 'dark mode');
  await engineCall((m) => m.method === 'thread/list' && m.params.searchTerm === 'dark mode');
  await page.fill('#search', '');
});

test('a session opens with its history, page by page', async () => {
  await page.click('[data-thread="thr_1"]');
  // The engine does not page by items, so the page falls back to turns, one turn per page.
  // The newest turn holds the last message alone; the one before it a message and its reply.
  await untilCount('[data-entry]', 1);
  await page.click('#earlier');
  await untilCount('[data-entry]', 3);
});

test('a turn streams into the page and ends', async () => {
  await say('stream-now');
  await shows('#transcript', 'word5 ');
  await screenshot('running-turn');
  await shows('#transcript', 'word39 ');
  await gone('#stop');
  assert.match(await page.locator('#transcript').innerText(), /\$ make test/);
});

test('an answer reads as Markdown, and nothing in it runs or loads', async () => {
  const asked = [];
  const note = (request) => { if (!request.url().startsWith(origin)) asked.push(request.url()); };
  page.on('request', note);
  await say('markdown-now');
  const answer = page.locator('[data-entry="msg_md"] .md');
  await answer.getByText('The end.').waitFor();
  await gone('#stop');
  const shape = await answer.evaluate((node) => ({
    blocks: [...node.children].map((child) => child.tagName.toLowerCase() + (child.className ? `.${child.className}` : '')),
    inline: [...node.querySelectorAll('em, strong, s, code, li, th, td, blockquote p')].map((n) => `${n.tagName.toLowerCase()}:${n.textContent}`),
    links: [...node.querySelectorAll('a')].map((a) => [a.textContent, a.href, a.target, a.rel]),
    inert: [...node.querySelectorAll('.md-inert-link, .md-image')].map((n) => n.textContent),
    loaders: node.querySelectorAll('img, script, iframe, object, embed, [onerror]').length,
    sideways: getComputedStyle(node.querySelector('.code-block pre')).overflowX,
  }));
  assert.deepEqual(shape.blocks, ['h3.md-heading', 'p', 'ul', 'blockquote', 'div.md-table', 'div.code-block', 'p', 'pre.md-raw', 'p']);
  assert.deepEqual(shape.inline, ['em:emphasis', 'strong:strong', 'code:inline <code>', 's:gone', 'li:first', 'li:☑ donenested', 'li:nested',
    'p:quoted', 'th:Name', 'th:Size', 'td:app.js', 'td:12', 'code:const answer = 42; // a long line that scrolls sideways rather than wrapping in the block']);
  assert.deepEqual(shape.links, [['safe link (https://example.invalid/docs)', 'https://example.invalid/docs', '_blank', 'noopener noreferrer nofollow']]);
  assert.deepEqual(shape.inert, ['trap (javascript:window.pwned=1)', '[image: a chart] https://example.invalid/chart.png']);
  assert.equal(shape.loaders, 0);
  assert.equal(shape.sideways, 'auto');
  assert.match(await answer.innerText(), /<img src="https:\/\/example.invalid\/pixel.png"[\s\S]*<script>window.pwned = 1<\/script>/);
  assert.equal(await page.evaluate(() => window.pwned), undefined);
  assert.deepEqual(asked, []);
  page.off('request', note);
  await screenshot('markdown');
});

test('what a turn changed shows as its Changes card, folded, at the end of the turn', async () => {
  await say('diff-now');
  const card = page.locator('[data-changes="turn-diff"]');
  await card.locator('h3', { hasText: '2 files changed +452 −1' }).waitFor();
  await gone('#stop');
  // The card went to the end of the turn, after the answer that followed the first diff.
  assert.equal(await page.locator('#transcript > article').last().getAttribute('data-entry'), 'changes-turn-diff');
  assert.equal(await card.locator('pre.diff').count(), 0);
  await page.click('button.file-link');
  const file = card.locator('details[data-path="src/app.js"]');
  assert.equal(await file.getAttribute('open'), '');
  assert.deepEqual(await file.locator('pre.diff span').evaluateAll((lines) => lines.map((l) => `${l.className}:${l.textContent}`)),
    ['diff-meta:index 1111111..2222222 100644', 'diff-hunk:@@ -1,3 +1,4 @@', 'diff-context: const a = 1;',
      'diff-remove:-const b = 2;', 'diff-add:+const b = 3;', 'diff-add:+const c = 4;', 'diff-context: export { a };']);
  const long = card.locator('details[data-path="data/words.txt"]');
  await long.locator('summary').click();
  await long.locator('pre.diff span').nth(399).waitFor();
  assert.equal(await long.locator('pre.diff span').count(), 400);
  await screenshot('changes');
  await long.getByRole('button', { name: 'Show all 452 lines' }).click();
  assert.equal(await long.locator('pre.diff span').count(), 452);
});

test('an image attached on the page reaches the engine shrunk, and shows in the message', async () => {
  // A screenshot larger than the bound, drawn by the browser itself.
  const png = Buffer.from(await page.evaluate(() => {
    const canvas = Object.assign(document.createElement('canvas'), { width: 4000, height: 3000 });
    const pen = canvas.getContext('2d');
    pen.fillStyle = '#2e7d32';
    pen.fillRect(0, 0, 4000, 3000);
    pen.fillStyle = '#ffffff';
    pen.fillRect(400, 300, 1600, 1200);
    return canvas.toDataURL('image/png').split(',')[1];
  }), 'base64');
  await page.setInputFiles('#attach-input', { name: 'screenshot.png', mimeType: 'image/png', buffer: png });
  await page.locator('#attachments img').waitFor();
  await page.fill('#composer', 'What is on this screen?');
  await screenshot('image-attached');
  await page.click('#send');
  const started = await engineCall((m) => m.method === 'turn/start' && m.params.input.some((item) => item.type === 'image'));
  const [words, image, ...more] = started.params.input;
  assert.deepEqual(words, { type: 'text', text: 'What is on this screen?' });
  assert.deepEqual(more, []);
  assert.match(image.url, /^data:image\/png;base64,/);
  const size = await page.evaluate((url) => new Promise((resolve) => {
    const shown = new Image();
    shown.onload = () => resolve([shown.naturalWidth, shown.naturalHeight]);
    shown.src = url;
  }), image.url);
  assert.deepEqual(size, [2048, 1536]);
  await page.locator('#transcript .message-image').waitFor();
  assert.equal(await page.locator('#attachments').count(), 0);
  await gone('#stop');
});

// The whole page is built again at each change, except the field being written in.
test('a message too large to send is refused at once, and its words and image stay', async () => {
  const png = Buffer.from(await page.evaluate(() => {
    const canvas = Object.assign(document.createElement('canvas'), { width: 40, height: 30 });
    canvas.getContext('2d').fillRect(0, 0, 10, 10);
    return canvas.toDataURL('image/png').split(',')[1];
  }), 'base64');
  await page.setInputFiles('#attach-input', { name: 'dot.png', mimeType: 'image/png', buffer: png });
  await page.locator('#attachments img').waitFor();
  // The field is hidden while it holds the text, so that the browser spends no time laying out
  // 20 MiB: what is tested is what the page does with it.
  const line = 'A line of a log pasted whole into the message.\n';
  await page.locator('#composer').evaluate((box, line) => {
    box.style.display = 'none';
    box.value = line.repeat(460000);
    box.dispatchEvent(new Event('input', { bubbles: true }));
    box.pasted = true;
  }, line);
  const starts = () => bridge.engineRecords().filter((r) => r.received?.method === 'turn/start').length;
  const before = starts();
  await page.click('#send');
  await shows('#notice', /^This message is too large to send \(2\d(\.\d)? MB; the computer takes at most 16 MB\)\./);
  // The same field, not laid out again: the refusal is all that changed.
  assert.deepEqual(await page.locator('#composer').evaluate((box) => [box.pasted, box.value.length]),
    [true, line.length * 460000]);
  assert.equal(await page.locator('#attachments img').count(), 1);
  assert.equal(starts(), before);
  await page.locator('#composer').evaluate((box) => {
    box.value = '';
    box.dispatchEvent(new Event('input', { bubbles: true }));
    box.style.display = '';
  });
  await page.getByRole('button', { name: 'Remove image' }).click();
});

test('a running turn is steered, then stopped', async () => {
  await say('hold-now');
  await page.locator('#stop').waitFor();
  await say('steer-now');
  await page.click('#stop');
  const interrupt = await engineCall((m) => m.method === 'turn/interrupt');
  const steer = await engineCall((m) => m.method === 'turn/steer');
  assert.equal(steer.params.expectedTurnId, 'turn-9');
  assert.deepEqual(steer.params.input, [{ type: 'text', text: 'steer-now' }]);
  assert.deepEqual(interrupt.params, { threadId: 'thr_1', turnId: 'turn-9' });
});

// The page in the background, as the browser reports it, and what it tells the system: the
// notifications it makes (and closes) and the app badge.
async function hide(hidden) {
  await page.evaluate((hidden) => {
    for (const [name, value] of [['visibilityState', hidden ? 'hidden' : 'visible'], ['hidden', hidden]])
      Object.defineProperty(document, name, { value, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }, hidden);
}

async function watchNotifications() {
  await page.evaluate(() => {
    window.told = [];
    window.badge = 0;
    const System = window.Notification;
    window.Notification = class extends System {
      constructor(title, options) {
        super(title, options);
        this.record = { title, body: options?.body, tag: options?.tag, open: true };
        window.told.push(this.record);
      }
      close() {
        this.record.open = false;
        super.close();
      }
    };
    navigator.setAppBadge = async (count) => { window.badge = count; };
    navigator.clearAppBadge = async () => { window.badge = 0; };
  });
}
const told = () => page.evaluate(() => ({ told: window.told, badge: window.badge, title: document.title }));

test('the page asks for notifications only once switched on; in the background an approval is told, and deciding it clears that', async () => {
  await page.context().grantPermissions(['notifications'], { origin });
  await watchNotifications();
  await page.click('#back');
  assert.equal(await page.locator('#notify').isChecked(), false);
  await page.locator('#notify').check();
  await page.click('[data-thread="thr_1"]');
  await hide(true);
  await say('approve-now');
  await shows('#requests', 'make test');
  await page.waitForFunction(() => document.title === '(1) Nimbrel Bridge' && window.badge === 1 && window.told.length === 1);
  const { told: [notification] } = await told();
  assert.deepEqual(notification, { title: 'Codex asks to run a command', body: 'Fix the flaky login test: make test',
    tag: notification.tag, open: true });
  await screenshot('approval');
  await page.click('#requests #accept');
  await gone('#requests [data-request]');
  assert.deepEqual((await engineAnswer(7)).result, { decision: 'accept' });
  await page.waitForFunction(() => document.title === 'Nimbrel Bridge' && window.badge === 0 && !window.told[0].open);
  await hide(false);
});

test('a question answered on the page reaches the engine', async () => {
  await say('ask-now');
  await shows('#requests', 'Which branch');
  await screenshot('question');
  await page.click('#requests input[value="main"]');
  await page.click('#requests button[type=submit]');
  assert.deepEqual((await engineAnswer(8)).result, { answers: { branch: { answers: ['main'] } } });
  await gone('#requests [data-request]');
});

test('more access and a tool server\'s form and address are decided on the page; one Codex settles itself leaves', async () => {
  await say('access-now');
  await shows('#requests', 'Write: /var/cache/shop');
  assert.match(await page.locator('#requests').innerText(), /more access[\s\S]*outside the folder[\s\S]*Network access/);
  await screenshot('more-access');
  await page.click('#requests #accept-session');
  assert.deepEqual((await engineAnswer(11)).result,
    { permissions: { fileSystem: { write: ['/var/cache/shop'] }, network: { enabled: true } }, scope: 'session' });
  await gone('#requests [data-request]');

  await say('form-now');
  await shows('#requests', 'tickets asks for your input');
  await page.click('#requests #accept');
  await shows('#requests .error', 'Title is required.');
  await page.fill('#requests [data-field="title"] input', 'Login test fails one run in ten');
  await page.check('#requests input[value="core"]');
  await screenshot('form');
  await page.click('#requests #accept');
  assert.deepEqual((await engineAnswer(12)).result,
    { action: 'accept', content: { title: 'Login test fails one run in ten', team: 'core', notify: true } });
  await gone('#requests [data-request]');

  await say('visit-now');
  const open = page.locator('#requests #open-address');
  await open.waitFor();
  assert.deepEqual([await open.getAttribute('href'), await open.getAttribute('target')], ['https://calendar.example/consent', '_blank']);
  await page.click('#requests #accept');
  assert.deepEqual((await engineAnswer(13)).result, { action: 'accept' });
  await gone('#requests [data-request]');

  await say('withdraw-now');
  await shows('#requests', 'Pick a label');
  await say('settle-now');
  await gone('#requests [data-request]');
});

test('more access shows every grant: special places by name, network first, a long list behind "and N more"; an unreadable one is refused', async () => {
  await say('grants-now');
  const card = page.locator('#requests [data-request]');
  await card.waitFor();
  const shownLines = await card.locator('.asked > ul > li').allInnerTexts();
  assert.deepEqual(shownLines.slice(0, 3), ['Network access', 'Write: the whole disk', 'Read: the session’s project folders']);
  assert.equal(shownLines.length, 12);
  assert.equal(shownLines[3], `Read: /home/ada/${'x'.repeat(1990)}`);
  await card.locator('summary', { hasText: /^and 49 more$/ }).click();
  const rest = await card.locator('.more-grants li').allInnerTexts();
  assert.equal(rest.length, 49);
  assert.equal(rest.at(-1), 'Write: /srv/data/56');
  await screenshot('more-access-long');
  await page.click('#requests #accept-session');
  const granted = (await engineAnswer(21)).result;
  assert.equal(granted.scope, 'session');
  assert.equal(granted.permissions.fileSystem.entries.length, 60);
  await gone('#requests [data-request]');

  await say('unreadable-now');
  const refused = await bridge.engineReceived((m) => m.id === 22 && m.error);
  assert.match(refused.error.message, /could not show everything it would grant/);
  assert.equal(await page.locator('#requests [data-request]').count(), 0);
});

test('a new session starts in a folder with its first task', async () => {
  await page.click('#back');
  await page.click('#new-session');
  await page.fill('#new-folder', '/home/ada/src/cafe');
  await page.fill('#new-task', 'Write the menu page');
  await page.selectOption('#model', 'gpt-6.1-sol');
  await page.click('#start-session');
  const started = await engineCall((m) => m.method === 'turn/start' && m.params.threadId === 'thr_new');
  const created = await engineCall((m) => m.method === 'thread/start');
  assert.equal(created.params.cwd, '/home/ada/src/cafe');
  assert.deepEqual(started.params.input, [{ type: 'text', text: 'Write the menu page' }]);
  assert.equal(started.params.model, 'gpt-6.1-sol');
  // The page's sessions ask before acting unless the user chooses otherwise.
  assert.deepEqual([created.params.approvalPolicy, created.params.sandbox], ['untrusted', 'workspace-write']);
  assert.deepEqual([started.params.approvalPolicy, started.params.sandboxPolicy], ['untrusted', { type: 'workspaceWrite' }]);
  // So the command Codex wants to run waits for the page.
  await shows('#requests', 'npm run build');
  await page.click('#requests #accept');
  assert.deepEqual((await engineAnswer(9)).result, { decision: 'accept' });
  await gone('#requests [data-request]');
  // A change of mode goes with the next turn.
  await screenshot('session-mode');
  await page.selectOption('#session-mode', 'read-only');
  await say('Only look around');
  const next = await engineCall((m) => m.method === 'turn/start' && m.params.input[0]?.text === 'Only look around');
  assert.deepEqual([next.params.approvalPolicy, next.params.sandboxPolicy], ['on-request', { type: 'readOnly' }]);
});

// Waits until the session's header shows the mode.
const modeShown = (on, title) => on.waitForFunction((title) => document.querySelector('#session-mode')?.selectedOptions[0]?.textContent === title, title);

test('a session set read only on one device runs read only when the page continues it, and shows so everywhere', async () => {
  const laptop = await pairedPage(origin, 'Ada’s Laptop');
  try {
    await laptop.click('[data-thread="thr_2"]');
    assert.equal(await laptop.locator('#session-mode option:checked').innerText(), 'Not chosen yet');
    await laptop.selectOption('#session-mode', 'read-only');
    await page.click('#back');
    await page.click('[data-thread="thr_2"]');
    await modeShown(page, 'Read only');
    await say('Only read the settings page');
    const resumed = await engineCall((m) => m.method === 'thread/resume' && m.params.threadId === 'thr_2');
    const started = await engineCall((m) => m.method === 'turn/start' && m.params.input[0]?.text === 'Only read the settings page');
    assert.deepEqual([resumed.params.approvalPolicy, resumed.params.sandbox], ['on-request', 'read-only']);
    assert.deepEqual([started.params.approvalPolicy, started.params.sandboxPolicy], ['on-request', { type: 'readOnly' }]);
    // A change on the page reaches the other device before its next turn.
    await page.selectOption('#session-mode', 'ask');
    await modeShown(laptop, 'Ask before acting');
    await page.selectOption('#session-mode', 'read-only');
    await modeShown(laptop, 'Read only');
    await screenshot('session-mode-shared');
  } finally {
    await laptop.context().close();
  }
});

test('a session is renamed, forked and archived from its menu, and leaves when archived elsewhere', async () => {
  await page.click('#back');
  await page.click('[data-thread="thr_2"]');
  await page.click('#session-menu');
  await screenshot('session-menu');
  await page.click('#rename-session');
  await page.fill('#session-name', '  Dark mode   toggle ');
  await page.click('#rename-confirm');
  assert.deepEqual((await engineCall((m) => m.method === 'thread/name/set')).params, { threadId: 'thr_2', name: 'Dark mode toggle' });
  await shows('.session-title', /^Dark mode toggle$/);

  await page.click('#session-menu');
  await page.click('#fork-session');
  assert.deepEqual((await engineCall((m) => m.method === 'thread/fork')).params,
    { threadId: 'thr_2', excludeTurns: true, approvalPolicy: 'on-request', sandbox: 'read-only' });
  await shows('.session-title', 'Add a dark mode toggle');

  await page.click('#session-menu');
  await page.click('#archive-session');
  await page.click('#archive-confirm');
  assert.deepEqual((await engineCall((m) => m.method === 'thread/archive')).params, { threadId: 'thr_fork' });
  await shows('#archived-notice', 'Archived');
  await page.click('#unarchive');
  assert.deepEqual((await engineCall((m) => m.method === 'thread/unarchive')).params, { threadId: 'thr_fork' });

  await page.click('[data-thread="thr_2"]');
  await say('archive-elsewhere');
  await gone('[data-thread="thr_2"]');
  await page.locator('#session-list').waitFor();
});

test('usage and limits', async () => {
  await page.click('#usage');
  await shows('#usage-details', 'left');
  assert.match(await page.locator('#usage-details').innerText(), /5 hours: 58% left[\s\S]*Weekly: 88% left/);
  await page.click('#back');
  await page.click('[data-thread="thr_1"]');
});

test('cut off mid-turn, the page catches up: the whole reply once, the turn ended, the unsent message kept', async () => {
  const relay = await new Relay(bridge.port).listen();
  let tablet;
  try {
    tablet = await pairedPage(`https://127.0.0.1:${relay.port}`, 'Ada’s Tablet');
    await tablet.click('[data-thread="thr_1"]');
    await shows('#transcript', 'message 45', tablet);
    await say('sever-now', tablet);
    await shows('#transcript', 'word3 ', tablet);
    relay.sever();
    await shows('#engine-status', /^Reconnecting…$/, tablet);
    // Sent while away: refused at once, and kept.
    await say('sent-while-away', tablet);
    await shows('#notice', 'Not connected', tablet);
    assert.equal(await tablet.locator('#composer').inputValue(), 'sent-while-away');
    // The engine streams on while the page is away.
    await bridge.engineRecorded((record) => record.deltaSent === 'word30 ');
    const caughtUp = newestHistoryArrives(tablet);
    relay.resume();
    await caughtUp;
    await tablet.locator('#engine-status', { hasText: /^Codex app-server ready$/ }).waitFor({ timeout: patience });
    await shows('#transcript', 'word59 ', tablet);
    await gone('#stop', tablet);
    const reply = await tablet.locator('[data-entry="turn-30-reply"]').innerText();
    assert.deepEqual([...reply.matchAll(/word(\d+) /g)].map((m) => Number(m[1])), [...Array(60).keys()]);
    const transcript = await tablet.locator('#transcript').innerText();
    assert.equal(transcript.split('sever-now').length, 2, 'the prompt once');
    assert.equal(transcript.split('message 45').length, 2, 'history once');
    assert.equal(await tablet.locator('#composer').inputValue(), 'sent-while-away');
    assert.ok(!bridge.engineRecords().some((r) => JSON.stringify(r.received ?? '').includes('sent-while-away')));
    assert.deepEqual(tablet.errors.filter((e) => !/WebSocket|ERR_CONNECTION/.test(e)), []);
  } finally {
    await tablet?.context().close();
    await relay.close();
  }
});

test('after a reconnect and after a reload, Stop and Steer act on the turn that runs', async () => {
  const relay = await new Relay(bridge.port).listen();
  let tablet;
  const interrupts = () => bridge.engineRecords().filter((r) => r.received?.method === 'turn/interrupt' && r.received.params.turnId === 'turn-50').length;
  const steered = async (text) => (await engineCall((m) => m.method === 'turn/steer' && m.params.input[0]?.text === text)).params.expectedTurnId;
  try {
    tablet = await pairedPage(`https://127.0.0.1:${relay.port}`, 'Ada’s Reader');
    await tablet.click('[data-thread="thr_1"]');
    await shows('#transcript', 'message 45', tablet);
    for (const after of ['reconnect', 'reload']) {
      await say('long-now', tablet);
      await shows('#transcript', 'Working through the list', tablet);
      if (after === 'reconnect') {
        relay.sever();
        await shows('#engine-status', /^Reconnecting…$/, tablet);
        relay.resume();
      } else {
        await tablet.reload();
        await tablet.click('[data-thread="thr_1"]');
      }
      await tablet.locator('#engine-status', { hasText: /^Codex app-server ready$/ }).waitFor({ timeout: 20000 });
      await tablet.locator('#stop').waitFor();
      await say(`steer after ${after}`, tablet);
      assert.equal(await steered(`steer after ${after}`), 'turn-50');
      const before = interrupts();
      await tablet.click('#stop');
      await bridge.engineRecorded(() => interrupts() > before);
      await gone('#stop', tablet);
    }
  } finally {
    await tablet?.context().close();
    await relay.close();
  }
});

test('a message cut off before it was confirmed stays in the composer, though an earlier one had the same text', async () => {
  const relay = await new Relay(bridge.port).listen();
  let tablet;
  try {
    tablet = await pairedPage(`https://127.0.0.1:${relay.port}`, 'Ada’s Notebook');
    await tablet.click('[data-thread="thr_1"]');
    await shows('#transcript', 'message 45', tablet);
    await say('continue', tablet);
    await shows('#transcript .entry.user', /^You\s*continue$/, tablet);
    assert.equal(await tablet.locator('#composer').inputValue(), '');
    relay.hold();
    await say('continue', tablet);
    relay.sever();
    await shows('#notice', 'The connection closed before the computer confirmed this message', tablet);
    const caughtUp = newestHistoryArrives(tablet);
    relay.resume();
    await caughtUp;
    await tablet.locator('#engine-status', { hasText: /^Codex app-server ready$/ }).waitFor({ timeout: 20000 });
    await shows('#notice', 'The connection closed', tablet);
    assert.equal(await tablet.locator('#composer').inputValue(), 'continue');
  } finally {
    await tablet?.context().close();
    await relay.close();
  }
});

test('after the computer restarts, the page reconnects by its stored key, without a code', async () => {
  await bridge.stop();
  await shows('#engine-status', /^Reconnecting…$/);
  const caughtUp = newestHistoryArrives(page);
  await bridge.start();
  await bridge.waitFor('Authenticated Ada’s Phone from 127.0.0.1.');
  assert.doesNotMatch(bridge.err, /Pairing requested/);
  await page.locator('#engine-status', { hasText: /^Codex app-server ready$/ }).waitFor({ timeout: patience });
  // What the page shows is read again and merged with what it held: the newest page of history
  // once, and the turns streamed before.
  await caughtUp;
  await page.locator('#transcript button#earlier').waitFor();
  const transcript = await page.locator('#transcript').innerText();
  assert.equal(transcript.split('message 45').length, 2);
  assert.match(transcript, /message 43[\s\S]*word39 /);
  // However long the computer takes to come back, the page may have tried while it was away.
  assert.deepEqual(page.errors.filter((e) => !/^WebSocket connection to .*ERR_CONNECTION_REFUSED$/.test(e)), []);
});

test('a page of another origin cannot open the link', async () => {
  const stranger = await newPage(browser);
  const outcome = await stranger.evaluate((port) => new Promise((resolve) => {
    const socket = new WebSocket(`wss://127.0.0.1:${port}/sarvane?name=Stranger`);
    socket.onopen = () => resolve('open');
    socket.onerror = () => resolve('refused');
  }), bridge.port);
  assert.equal(outcome, 'refused');
  await stranger.context().close();
  assert.doesNotMatch(bridge.err, /Stranger/);
});

test('installed, the page opens from its own files while the computer is away, and keeps nothing else', async () => {
  await page.waitForFunction(() => navigator.serviceWorker.controller?.scriptURL.endsWith('/sw.js'));
  const cached = await page.evaluate(async () => {
    const names = await caches.keys();
    const urls = [];
    for (const name of names) for (const request of await (await caches.open(name)).keys()) urls.push(request.url);
    return { names, paths: urls.map((url) => new URL(url).pathname).sort() };
  });
  assert.equal(cached.names.length, 1);
  assert.deepEqual(cached.paths, ['/', '/app.css', '/app.js', '/attachments.js', '/attention.js', '/diff.js', '/dom.js',
    '/hello.js', '/icon-180.png', '/icon-192.png', '/icon-512.png', '/icon-maskable-512.png', '/icon.svg', '/link.js',
    '/manifest.webmanifest', '/markdown.js', '/marked.js', '/modes.js', '/requests.js', '/session-menu.js', '/store.js',
    '/transcript.js']);
  await bridge.stop();
  page.errors.length = 0;
  await page.reload();
  await shows('#connecting', 'Reconnecting');
  await screenshot('offline');
  assert.deepEqual(page.errors.filter((e) => !/WebSocket|ERR_CONNECTION_REFUSED/.test(e)), []);
});

test('a computer that answers with the same id and another key is refused', async () => {
  rmSync(join(bridge.home, 'data/nimbrel-bridge/secrets/com.halvenworks.Sarvane/device-signing-key'));
  await bridge.start();
  await page.locator('#key-changed', { hasText: 'key has changed' }).waitFor({ timeout: patience });
  await screenshot('key-changed');
  assert.doesNotMatch(bridge.err, /Authenticated|Pairing requested/);
});
