// The page's connection to the bridge: the WebSocket on the page's own origin, the signed hellos,
// pairing, requests and their answers, and reconnecting by itself after sleep or a network change.
//
// States: 'connecting'; 'pairing' (the code is shown and the computer's user is asked); 'rejected';
// 'keyChanged' (a computer paired before answers with another key: refused, no retry); 'ready';
// 'offline' (waiting to try again).

import { makeHello, pairingCode, verifyHello } from './hello.js';

const requestLimitMs = 45000;
const livenessEveryMs = 25000;
const livenessLimitMs = 10000;
const codeDelayForPairedMs = 3000;
// The most the computer takes in one message.
export const maximumMessageBytes = 16 * 1024 * 1024;

// The refusal of a message of this many bytes, with what to do.
export function tooLargeText(bytes) {
  const megabytes = (n) => (n / (1024 * 1024)).toFixed(1).replace(/\.0$/, '');
  return `This message is too large to send (${megabytes(bytes)} MB; the computer takes at most ${megabytes(maximumMessageBytes)} MB). ` +
    'Remove an image or shorten the text, then send it again.';
}

export class BridgeLink extends EventTarget {
  constructor({ crypto, identity, name, pairedKey, rememberComputer, host }) {
    super();
    Object.assign(this, { crypto, identity, name, pairedKey, rememberComputer, host });
    this.state = 'connecting';
    this.code = '';
    this.computerName = '';
    this.problem = '';
    this.pending = new Map();
    this.counter = 0;
    this.retryDelayMs = 1000;
  }

  start() {
    addEventListener('online', () => this.reconnectNow());
    document.addEventListener('visibilitychange', () => {
      if (document.visibilityState === 'visible') this.checkLiveness();
    });
    this.connect();
  }

  setState(state, fields = {}) {
    Object.assign(this, fields);
    this.state = state;
    this.dispatchEvent(new Event('state'));
  }

  // A transport name of the user's name and four random characters, new on each connection, so
  // that a connection the computer has not yet seen close never blocks the next one.
  transportName() {
    const suffix = Array.from(this.crypto.getRandomValues(new Uint8Array(2)),
      (b) => b.toString(16).padStart(2, '0')).join('').toUpperCase();
    return `${Array.from(this.name).slice(0, 58).join('')}-${suffix}`;
  }

  connect() {
    clearTimeout(this.retryTimer);
    if (this.state === 'keyChanged') return;
    const socket = new WebSocket(`wss://${this.host}/sarvane?name=${encodeURIComponent(this.transportName())}`);
    this.socket = socket;
    this.localHello = null;
    this.remoteHello = null;
    this.setState('connecting', { code: '' });
    // One message at a time, in order, though reading one may wait on storage or WebCrypto.
    let queue = Promise.resolve();
    socket.onmessage = (event) => { queue = queue.then(() => this.receive(socket, event.data)); };
    socket.onclose = () => this.closed(socket);
  }

  closed(socket) {
    if (socket !== this.socket) return;
    this.socket = null;
    clearInterval(this.livenessTimer);
    clearTimeout(this.codeTimer);
    // Whether the computer received these is not known: a caller that must not repeat one (a
    // message to Codex) tells by `lost`.
    for (const { reject, timer } of this.pending.values()) {
      clearTimeout(timer);
      reject(Object.assign(new Error('The connection to the computer closed before it answered.'), { lost: true }));
    }
    this.pending.clear();
    // Refused, the page waits for the person to ask again rather than asking by itself.
    if (this.state === 'keyChanged' || this.state === 'rejected') return;
    this.setState('offline');
    this.retryTimer = setTimeout(() => this.connect(), this.retryDelayMs);
    this.retryDelayMs = Math.min(this.retryDelayMs * 2, 15000);
  }

  reconnectNow() {
    if (this.state === 'keyChanged' || this.state === 'rejected') return;
    this.retryDelayMs = 1000;
    if (!this.socket) this.connect();
    else this.checkLiveness();
  }

  send(message) {
    if (this.socket && this.socket.readyState === WebSocket.OPEN)
      this.socket.send(JSON.stringify({ version: 1, ...message }));
  }

  async receive(socket, data) {
    let message;
    try {
      message = JSON.parse(data);
    } catch {
      return;
    }
    if (!message || typeof message !== 'object' || socket !== this.socket) return;
    const { kind, id, body } = message;
    if (kind === 'hello' && !this.remoteHello) await this.receiveHello(body);
    else if (kind === 'pairingAccepted') await this.accepted();
    else if (kind === 'pairingRejected') this.setState('rejected');
    else if ((kind === 'response' || kind === 'error') && this.pending.has(id)) {
      const { resolve, reject, timer } = this.pending.get(id);
      this.pending.delete(id);
      clearTimeout(timer);
      if (kind === 'response') resolve(body);
      else reject(new Error(typeof body === 'string' ? body : 'The computer refused the request.'));
    } else if (kind === 'event' || kind === 'serverRequest') {
      this.dispatchEvent(Object.assign(new Event('message'), { message }));
    }
  }

  async receiveHello(body) {
    if (!(await verifyHello(this.crypto, body))) {
      this.problem = 'The computer’s hello did not verify.';
      this.socket?.close();
      return;
    }
    const known = await this.pairedKey(body.deviceID);
    if (known !== undefined && known !== body.publicKey) {
      this.socket?.close();
      this.setState('keyChanged', { computerName: body.displayName });
      return;
    }
    this.remoteHello = body;
    this.computerName = body.displayName;
    this.knownComputer = known !== undefined;
    // This browser's hello goes only to a computer whose own hello verified and whose key is the
    // one it had when paired, or to one not paired yet.
    this.localHello = await makeHello(this.crypto, this.identity.keyPair, this.identity.deviceID, this.name);
    this.send({ kind: 'hello', body: this.localHello });
    await this.bothHellos();
  }

  // Both hellos are out: ask to pair. A computer that trusts this browser accepts it from its hello
  // alone and drops the request; the code shows at once only where this computer is new here.
  async bothHellos() {
    if (this.state === 'ready') return;
    this.code = await pairingCode(this.crypto, this.localHello, this.remoteHello);
    this.send({ kind: 'pairingRequest' });
    if (this.knownComputer)
      this.codeTimer = setTimeout(() => this.state === 'connecting' && this.setState('pairing'), codeDelayForPairedMs);
    else this.setState('pairing');
  }

  // The computer hears one request a connection: asking again takes a new one.
  askAgain() {
    const refused = this.socket;
    this.socket = null;
    refused?.close();
    this.retryDelayMs = 1000;
    this.connect();
  }

  async accepted() {
    if (!this.remoteHello) return;
    clearTimeout(this.codeTimer);
    await this.rememberComputer(this.remoteHello.deviceID, this.remoteHello.publicKey);
    this.retryDelayMs = 1000;
    clearInterval(this.livenessTimer);
    this.livenessTimer = setInterval(() => this.checkLiveness(), livenessEveryMs);
    this.setState('ready');
  }

  // A ping that must come back soon; a link that slept or lost its network closes and reconnects.
  checkLiveness() {
    if (!this.socket || this.state !== 'ready') return;
    const socket = this.socket;
    this.request('ping', undefined, livenessLimitMs, 'ping').catch(() => {
      if (socket === this.socket) socket.close();
      this.closed(socket);
    });
  }

  request(method, body, limitMs = requestLimitMs, kind = 'request') {
    return new Promise((resolve, reject) => {
      if (!this.socket || this.socket.readyState !== WebSocket.OPEN) {
        reject(new Error('Not connected to the computer.'));
        return;
      }
      const id = `c-${++this.counter}`;
      const encoded = JSON.stringify({ version: 1, ...(kind === 'ping' ? { kind, id } : { kind, id, method, body }) });
      // Counted in bytes where it could be too large; a string never has more bytes than three per unit.
      const bytes = encoded.length * 3 > maximumMessageBytes ? new TextEncoder().encode(encoded).length : encoded.length;
      if (bytes > maximumMessageBytes) {
        reject(new Error(tooLargeText(bytes)));
        return;
      }
      const timer = setTimeout(() => {
        this.pending.delete(id);
        reject(new Error('The computer did not answer in time.'));
      }, limitMs);
      this.pending.set(id, { resolve, reject, timer });
      this.socket.send(encoded);
    });
  }

  // The answer to an approval or a question; the first answer from anyone is the one Codex gets.
  answer(id, method, body) {
    this.send({ kind: 'serverResponse', id, method, body });
  }
}
