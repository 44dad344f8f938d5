// A real nimbrel-bridge, headless, over the fake engine, in a temporary home; for driving the
// browser cockpit against it. Its console takes commands ("approve <code>") on standard input.

import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, symlinkSync, watch } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export class RunningBridge {
  // paths: {bridge, fakeCodex, scenario}
  constructor(paths) {
    this.paths = paths;
    this.home = mkdtempSync(join(tmpdir(), 'nimbrel-cockpit-'));
    mkdirSync(join(this.home, 'bin'));
    symlinkSync(paths.fakeCodex, join(this.home, 'bin', 'codex'));
    this.record = join(this.home, 'engine-record');
    this.port = 0;
  }

  // Starts the bridge (on the port it had before, after the first start) and waits for the engine.
  async start() {
    const env = { ...process.env, HOME: this.home, XDG_CONFIG_HOME: join(this.home, 'config'),
      XDG_DATA_HOME: join(this.home, 'data'), PATH: `${join(this.home, 'bin')}:/usr/bin:/bin`,
      FAKE_CODEX_SCENARIO: this.paths.scenario, FAKE_CODEX_RECORD: this.record,
      NIMBREL_LINK_ADDRESS: '127.0.0.1', NIMBREL_LINK_PORT: String(this.port) };
    delete env.DISPLAY;
    delete env.WAYLAND_DISPLAY;
    this.err = ''; // since this start; log holds every start's
    this.child = spawn(this.paths.bridge, ['--headless'], { env, stdio: ['pipe', 'ignore', 'pipe'] });
    this.child.stderr.setEncoding('utf8');
    this.child.stderr.on('data', (chunk) => {
      this.err += chunk;
      this.log = (this.log || '') + chunk;
      this.said?.();
    });
    this.exited = new Promise((resolve) => this.child.on('exit', resolve));
    const [, port] = await this.waitFor(/Listening on wss:\/\/127\.0\.0\.1:(\d+)\/sarvane/);
    this.port = Number(port);
    await this.waitFor(/Codex app-server ready/);
    return this;
  }

  // Waits for the pattern in what the bridge wrote to standard error since it started.
  waitFor(pattern, limitMs = 60000) {
    return until(() => this.err.match(pattern), (check) => { this.said = check; }, () => { this.said = null; },
      limitMs, () => `The bridge did not say ${pattern}:\n${this.err}`);
  }

  type(line) {
    this.child.stdin.write(`${line}\n`);
  }

  // What the fake engine recorded: one JSON object per line.
  engineRecords() {
    try {
      return readFileSync(this.record, 'utf8').split('\n').filter((line) => line).map((line) => JSON.parse(line));
    } catch {
      return [];
    }
  }

  // Waits until the engine has received a message for which test() holds, and returns it.
  engineReceived(test, limitMs = 60000) {
    return this.engineRecorded((record) => record.received && test(record.received), limitMs).then((r) => r.received);
  }

  // Waits until the engine has recorded something for which test() holds, and returns it.
  engineRecorded(test, limitMs = 60000) {
    let watcher;
    return until(() => this.engineRecords().find(test),
      (check) => { watcher = watch(this.home, check); },
      () => watcher?.close(), limitMs, () => `The engine did not record ${test}`);
  }

  async stop() {
    this.child.kill('SIGTERM');
    await Promise.race([this.exited, new Promise((resolve) => setTimeout(resolve, 5000))]);
    this.child.kill('SIGKILL');
  }

  async dispose() {
    await this.stop();
    rmSync(this.home, { recursive: true, force: true });
  }
}

// Resolves with check()'s first truthy value, checking now and whenever listen's callback is called.
function until(check, listen, unlisten, limitMs, problem) {
  return new Promise((resolve, reject) => {
    const done = (error, value) => {
      clearTimeout(timer);
      unlisten();
      if (error) reject(error);
      else resolve(value);
    };
    const timer = setTimeout(() => done(new Error(problem())), limitMs);
    listen(() => {
      const value = check();
      if (value) done(null, value);
    });
    const value = check();
    if (value) done(null, value);
  });
}
