// The cockpit's link on Node's mock clock: how soon it tries again, how long a request may wait,
// and how it finds out that a connection went silent. A fake WebSocket plays the bridge; the
// hellos are real, over Node's WebCrypto.
import assert from 'node:assert/strict';
import { afterEach, beforeEach, mock, test } from 'node:test';
import { webcrypto as crypto } from 'node:crypto';

import { BridgeLink } from '../../src/cockpit/link.js';
import { makeHello } from '../../src/cockpit/hello.js';

class FakeSocket {
  static OPEN = 1;
  static made = [];
  constructor(url) {
    Object.assign(this, { url, readyState: FakeSocket.OPEN, sent: [] });
    FakeSocket.made.push(this);
  }
  send(text) { this.sent.push(JSON.parse(text)); }
  close() { this.drop(); }
  // The connection ends, as the browser reports it.
  drop() {
    if (this.readyState === 3) return;
    this.readyState = 3;
    this.onclose?.();
  }
  // A message from the bridge, read as the link reads it: in order, after what came before.
  async deliver(message) {
    this.onmessage({ data: JSON.stringify({ version: 1, ...message }) });
    await settle(() => true);
  }
  get last() { return this.sent.at(-1); }
}

const windowEvents = new EventTarget();
globalThis.WebSocket = FakeSocket;
globalThis.addEventListener = windowEvents.addEventListener.bind(windowEvents);
globalThis.document = Object.assign(new EventTarget(), { visibilityState: 'visible' });

const algorithm = { name: 'ECDSA', namedCurve: 'P-256' };
const computer = await crypto.subtle.generateKey(algorithm, false, ['sign', 'verify']);
const computerHello = () => makeHello(crypto, computer, 'computer-1', 'Workshop');
const browserIdentity = { keyPair: await crypto.subtle.generateKey(algorithm, false, ['sign', 'verify']), deviceID: 'browser-1' };

// Lets WebCrypto's work, which runs off the event loop, finish until the condition holds. The
// limit is real time (the tests' timers may be mocked) and generous: a busy machine only slows it.
async function settle(condition, limitMs = 60000) {
  const deadline = Date.now() + limitMs;
  while (!condition() && Date.now() < deadline) await new Promise((resolve) => setImmediate(resolve));
  assert.ok(condition(), `never true: ${condition}`);
}

let link;
function makeLink(pairedKey = async () => undefined, name = 'Ada’s Phone') {
  link = new BridgeLink({ crypto, identity: browserIdentity, name, pairedKey, rememberComputer: async () => {},
    host: '127.0.0.1:48215' });
  link.start();
  return link;
}
const socket = () => FakeSocket.made.at(-1);

// The newest socket goes through the hellos and is accepted.
async function pair() {
  await socket().deliver({ kind: 'hello', body: await computerHello() });
  await settle(() => socket().sent.some((m) => m.kind === 'pairingRequest'));
  await socket().deliver({ kind: 'pairingAccepted' });
  await settle(() => link.state === 'ready');
}

// Advances the clock to just before ms, sees that no new socket was made, then to ms.
function expectRetryAfter(ms) {
  const before = FakeSocket.made.length;
  mock.timers.tick(ms - 1);
  assert.equal(FakeSocket.made.length, before, `no try before ${ms} ms`);
  mock.timers.tick(1);
  assert.equal(FakeSocket.made.length, before + 1, `a try at ${ms} ms`);
}

beforeEach(() => {
  FakeSocket.made = [];
  mock.timers.enable({ apis: ['setTimeout', 'setInterval'] });
});
// A link lives as long as its page; here each test's is made inert, so that the window's events of
// the next test reach only that test's link.
afterEach(() => {
  link.state = 'keyChanged';
  link.socket?.drop();
  mock.timers.reset();
});

test('tries again after 1, 2, 4, 8 and then every 15 seconds; from 1 second again once accepted', async () => {
  makeLink();
  for (const delay of [1000, 2000, 4000, 8000, 15000, 15000]) {
    socket().drop();
    assert.equal(link.state, 'offline');
    expectRetryAfter(delay);
  }
  await pair();
  socket().drop();
  expectRetryAfter(1000);
  // Back online or visible again: at once, without waiting out the delay.
  socket().drop();
  windowEvents.dispatchEvent(new Event('online'));
  assert.equal(FakeSocket.made.length, 9);
});

test('a request waits 45 seconds at most, and one in flight ends when the connection does', async () => {
  makeLink();
  socket().drop();
  await assert.rejects(link.request('thread/list', {}), /Not connected/);
  mock.timers.tick(1000);
  await pair();
  const slow = link.request('thread/list', { limit: 1 });
  assert.deepEqual(socket().last, { version: 1, kind: 'request', id: socket().last.id, method: 'thread/list', body: { limit: 1 } });
  mock.timers.tick(44999);
  let settled = false;
  slow.catch(() => {}).finally(() => { settled = true; });
  await settle(() => true);
  assert.equal(settled, false);
  mock.timers.tick(1);
  await assert.rejects(slow, /did not answer in time/);

  const answered = link.request('model/list', {});
  await socket().deliver({ kind: 'response', id: socket().last.id, body: { data: [] } });
  assert.deepEqual(await answered, { data: [] });

  const inFlight = link.request('turn/start', {});
  socket().drop();
  await assert.rejects(inFlight, (error) => error.lost === true && /connection to the computer closed/.test(error.message));
});

test('a ping every 25 seconds; one unanswered for 10 seconds ends the connection, which is tried again', async () => {
  makeLink();
  await pair();
  const first = socket();
  mock.timers.tick(25000);
  assert.equal(first.last.kind, 'ping');
  await first.deliver({ kind: 'response', id: first.last.id });
  mock.timers.tick(10000);
  assert.equal(link.state, 'ready');
  // Visible again: checked at once.
  document.dispatchEvent(new Event('visibilitychange'));
  assert.equal(first.last.kind, 'ping');
  mock.timers.tick(9999);
  await settle(() => true);
  assert.equal(first.readyState, FakeSocket.OPEN);
  mock.timers.tick(1);
  await settle(() => link.state === 'offline');
  assert.equal(first.readyState, 3);
  expectRetryAfter(1000);
});

test('a computer paired here that answers with another key is refused and never tried again', async () => {
  makeLink(async () => 'another key');
  await socket().deliver({ kind: 'hello', body: await computerHello() });
  await settle(() => link.state === 'keyChanged');
  assert.ok(!socket().sent.some((m) => m.kind === 'hello'), 'no hello goes to it');
  mock.timers.tick(120000);
  windowEvents.dispatchEvent(new Event('online'));
  assert.equal(FakeSocket.made.length, 1);
});

test('the name on the connection is the user’s, cut to 58 characters, with four new characters each time', async () => {
  makeLink(undefined, '😀'.repeat(70));
  const name = (url) => decodeURIComponent(new URL(url).searchParams.get('name'));
  assert.match(name(socket().url), /^(😀){58}-[0-9A-F]{4}$/u);
  const names = new Set();
  for (let i = 0; i < 8; i++) {
    names.add(name(socket().url));
    socket().drop();
    mock.timers.tick(15000);
  }
  assert.ok(names.size > 1);
});

test('refused, the link asks again only when told, and then on a new connection', async () => {
  makeLink();
  await socket().deliver({ kind: 'hello', body: await computerHello() });
  await settle(() => socket().sent.some((m) => m.kind === 'pairingRequest'));
  await socket().deliver({ kind: 'pairingRejected' });
  assert.equal(link.state, 'rejected');
  socket().drop();
  mock.timers.tick(60000);
  assert.equal(FakeSocket.made.length, 1, 'no new connection by itself');
  assert.equal(link.state, 'rejected');

  link.askAgain();
  assert.equal(FakeSocket.made.length, 2);
  await socket().deliver({ kind: 'hello', body: await computerHello() });
  await settle(() => socket().sent.some((m) => m.kind === 'pairingRequest'));
  assert.equal(link.state, 'pairing');
});

test('a message larger than the computer takes is refused at once, saying what to do, and nothing is sent', async () => {
  makeLink();
  await pair();
  const sent = socket().sent.length;
  await assert.rejects(link.request('turn/start', { threadId: 't', input: [{ type: 'text', text: 'x'.repeat(20 * 1024 * 1024) }] }),
    { message: /^This message is too large to send \(20 MB; the computer takes at most 16 MB\)\. Remove an image or shorten the text, then send it again\.$/ });
  assert.equal(socket().sent.length, sent);
  link.request('turn/start', { threadId: 't', input: [{ type: 'text', text: 'fits' }] }).catch(() => {});
  assert.equal(socket().last.body.input[0].text, 'fits');
});
