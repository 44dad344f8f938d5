// Drives headless Chromium over the DevTools protocol on a pipe: no packages, no network port.
// Used by the cockpit's browser tests, its screenshots and its latency benchmark.

import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export const chromiumPath = process.env.CHROMIUM || '/usr/bin/chromium';

export const phone = { width: 390, height: 844, deviceScaleFactor: 2, mobile: true };

const flags = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
  '--disable-default-apps', '--mute-audio', '--ignore-certificate-errors', '--remote-debugging-pipe'];

export async function launch() {
  const profile = mkdtempSync(join(tmpdir(), 'nimbrel-chromium-'));
  const child = spawn(chromiumPath, [...flags, `--user-data-dir=${profile}`, 'about:blank'],
    { stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe'], detached: true });
  let log = '';
  child.stderr.on('data', (chunk) => { log = (log + chunk).slice(-20000); });
  const browser = new Browser(child, profile, () => log);
  await browser.send('Target.setDiscoverTargets', { discover: true });
  return browser;
}

class Browser {
  constructor(child, profile, log) {
    Object.assign(this, { child, profile, log, counter: 0, calls: new Map(), listeners: new Set() });
    let buffered = '';
    child.stdio[4].on('data', (chunk) => {
      buffered += chunk;
      let end;
      while ((end = buffered.indexOf('\0')) >= 0) {
        const message = JSON.parse(buffered.slice(0, end));
        buffered = buffered.slice(end + 1);
        const call = this.calls.get(message.id);
        if (call) {
          this.calls.delete(message.id);
          if (message.error) call.reject(new Error(`${call.method}: ${message.error.message}`));
          else call.resolve(message.result);
        } else {
          for (const listener of this.listeners) listener(message);
        }
      }
    });
    this.exited = new Promise((resolve) => child.on('exit', resolve));
  }

  send(method, params = {}, sessionId = undefined) {
    const id = ++this.counter;
    return new Promise((resolve, reject) => {
      this.calls.set(id, { resolve, reject, method });
      this.child.stdio[3].write(`${JSON.stringify({ id, method, params, ...(sessionId ? { sessionId } : {}) })}\0`);
    });
  }

  // A new tab, at the size given, optionally recording the network.
  async newPage(viewport = phone) {
    const { targetId } = await this.send('Target.createTarget', { url: 'about:blank' });
    const { sessionId } = await this.send('Target.attachToTarget', { targetId, flatten: true });
    const page = new Page(this, sessionId);
    await page.send('Page.enable');
    await page.send('Runtime.enable');
    await page.send('Emulation.setDeviceMetricsOverride', viewport);
    return page;
  }

  // Ends Chromium and every process it started.
  async close() {
    const signal = (name) => { try { process.kill(-this.child.pid, name); } catch { /* gone */ } };
    signal('SIGTERM');
    await Promise.race([this.exited, new Promise((resolve) => setTimeout(resolve, 3000))]);
    signal('SIGKILL');
    for (const stream of this.child.stdio) stream?.destroy();
    rmSync(this.profile, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
  }
}

class Page {
  constructor(browser, sessionId) {
    Object.assign(this, { browser, sessionId, errors: [] });
    browser.listeners.add((message) => {
      if (message.sessionId !== sessionId) return;
      if (message.method === 'Runtime.exceptionThrown')
        this.errors.push(message.params.exceptionDetails?.exception?.description || message.params.exceptionDetails?.text);
      if (message.method === 'Runtime.consoleAPICalled' && message.params.type === 'error')
        this.errors.push(message.params.args.map((a) => a.value ?? a.description).join(' '));
      this.onEvent?.(message);
    });
  }

  send(method, params = {}) {
    return this.browser.send(method, params, this.sessionId);
  }

  async goto(url) {
    await this.send('Page.navigate', { url });
  }

  // The value of an expression in the page (awaited when it is a promise).
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.send('Runtime.evaluate',
      { expression, awaitPromise: true, returnByValue: true });
    if (exceptionDetails) throw new Error(`${expression}: ${exceptionDetails.exception?.description || exceptionDetails.text}`);
    return result.value;
  }

  // Waits until the expression is truthy, and returns its value.
  async waitFor(expression, limitMs = 10000) {
    const end = Date.now() + limitMs;
    for (;;) {
      const value = await this.evaluate(expression).catch(() => undefined);
      if (value) return value;
      if (Date.now() > end) {
        const body = await this.evaluate('document.body.innerText').catch(() => '');
        throw new Error(`Timed out waiting for ${expression}\nPage errors: ${this.errors.join('\n')}\nPage text:\n${body}`);
      }
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
  }

  async click(selector) {
    await this.waitFor(`document.querySelector(${JSON.stringify(selector)})`);
    await this.evaluate(`document.querySelector(${JSON.stringify(selector)}).click()`);
  }

  // Types text into a field as the user would: the value changes and an input event follows.
  async fill(selector, text) {
    await this.waitFor(`document.querySelector(${JSON.stringify(selector)})`);
    await this.evaluate(`(() => { const field = document.querySelector(${JSON.stringify(selector)});
      field.focus(); field.value = ${JSON.stringify(text)};
      field.dispatchEvent(new Event('input', { bubbles: true })); })()`);
  }

  async screenshot() {
    // A tab behind another draws nothing, and the capture would wait for a frame.
    await this.send('Page.bringToFront');
    const { data } = await this.send('Page.captureScreenshot', { format: 'png' });
    return Buffer.from(data, 'base64');
  }
}
