// The browser cockpit's figures, in one run: the page's transfer size on first load, the time a
// streamed Markdown answer takes to render at three lengths, and how long a reply delta takes from leaving the engine to showing in the page (the frame that paints it) and,
// beside it, to reaching nimbrel-peer's standard output. Usage: node bench/cockpit_bench.mjs TREE
// where TREE is a build tree with the bridge, nimbrel-peer and the fake engine.

import { spawn } from 'node:child_process';
import { mkdtempSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';

import { RunningBridge } from '../tools/browser/bridge.mjs';
import { launch, newPage } from '../tools/browser/chromium.mjs';

const tree = resolve(process.argv[2] || 'build/release');
const deltas = 400;
const folder = mkdtempSync(join(tmpdir(), 'nimbrel-cockpit-bench-'));
const scenario = join(folder, 'scenario.json');
writeFileSync(scenario, JSON.stringify({
  methods: {
    'thread/list': { result: { data: [{ id: 'thr_1', name: 'Measured', status: { type: 'idle' } }] } },
    'turn/start': { result: { turn: { id: 'turn-1', status: 'inProgress' } } },
  },
  history: { thr_1: { items: 2 } },
  cues: [{ when: 'measure-now', actions: [{ streamTurn: { threadId: 'thr_1', turnId: 'turn-1', prompt: 'measure-now',
    deltas, delayMs: 5, recordDeltas: true } }] }],
}));

const sleep = (ms) => new Promise((done) => setTimeout(done, ms));
const percentile = (values, p) => {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];
};

const bridge = await new RunningBridge({ bridge: join(tree, 'src/nimbrel-bridge'),
  fakeCodex: join(tree, 'tools/fake-codex/fake-codex'), scenario }).start();
const browser = await launch();
try {
  // First load: every response's bytes on the wire, as the browser counts them.
  const page = await newPage(browser);
  let transferred = 0;
  let files = 0;
  const network = await page.context().newCDPSession(page);
  const counted = (event) => {
    transferred += event.encodedDataLength;
    files += 1;
  };
  network.on('Network.loadingFinished', counted);
  await network.send('Network.enable');
  await network.send('Network.setCacheDisabled', { cacheDisabled: true });
  await page.goto(`https://127.0.0.1:${bridge.port}/`);
  await page.locator('#device-name').waitFor();
  console.log(`first load: ${files} files, ${transferred} bytes transferred (before pairing)`);
  network.off('Network.loadingFinished', counted);
  await page.fill('#device-name', 'Bench Phone');
  await page.click('#save-name');
  await page.locator('#pairing-code', { hasText: /^\d{6}$/ }).waitFor();
  const code = await page.locator('#pairing-code').innerText();
  await bridge.waitFor(`Compare code ${code}`);
  bridge.type(`approve ${code}`);
  await page.locator('[data-thread]').first().waitFor();

  // A long answer streamed line by line into a message's Markdown view: the time for the whole
  // stream at three lengths, which grows in proportion to the length while each line costs the same.
  const growth = await page.evaluate(async () => {
    const { MarkdownView } = await import('./markdown.js');
    const line = (i) => (i % 25 === 0 ? `## Part ${i}\n\n` : i % 9 === 0 ? '```sh\nmake test\n```\n\n'
      : `- item ${i} with **bold**, \`code\` and a [link](https://example.invalid/${i})\n${i % 5 === 4 ? '\n' : ''}`);
    const figures = [];
    for (const lines of [500, 1000, 2000]) {
      const view = new MarkdownView();
      document.body.append(view.root);
      let text = '';
      const start = performance.now();
      for (let i = 0; i < lines; i++) {
        text += line(i);
        view.render(text, true);
      }
      view.render(text, false);
      figures.push([lines, performance.now() - start]);
      view.root.remove();
    }
    return figures;
  });
  for (const [lines, ms] of growth)
    console.log(`markdown streamed line by line, ${lines} lines: ${ms.toFixed(0)} ms (${(ms / lines * 1000).toFixed(0)} µs a line)`);

  // nimbrel-peer, paired through the console too, times each delta line as it arrives.
  const peer = spawn(join(tree, 'tools/nimbrel-peer'), ['--host', '127.0.0.1', '--port', String(bridge.port),
    '--name', 'Bench Tool', '--state', join(folder, 'peer')], { stdio: ['pipe', 'pipe', 'pipe'] });
  let peerErr = '';
  peer.stderr.on('data', (chunk) => { peerErr += chunk; });
  const peerSeen = new Map();
  let peerOut = '';
  peer.stdout.on('data', (chunk) => {
    const now = Date.now();
    peerOut += chunk;
    let end;
    while ((end = peerOut.indexOf('\n')) >= 0) {
      const line = peerOut.slice(0, end);
      peerOut = peerOut.slice(end + 1);
      const found = line.includes('item/agentMessage/delta') && line.match(/"delta":"(word\d+) "/);
      if (found && !peerSeen.has(found[1])) peerSeen.set(found[1], now);
    }
  });
  peer.stdin.write('pair\n');
  for (let i = 0; i < 200 && !/Pairing code: (\d{6})/.test(peerErr); i++) await sleep(25);
  const peerCode = peerErr.match(/Pairing code: (\d{6})/)[1];
  await bridge.waitFor(`Compare code ${peerCode}`);
  bridge.type(`approve ${peerCode}`);
  await bridge.waitFor('Paired Bench Tool');

  // The page stamps each word at the frame after the one whose DOM change brought it.
  await page.click('[data-thread="thr_1"]');
  await page.waitForFunction(() => document.querySelectorAll('[data-entry]').length === 2);
  await page.evaluate(`(() => {
    window.seenAt = {};
    const pending = new Set();
    new MutationObserver(() => {
      for (const match of (document.getElementById('transcript')?.textContent || '').matchAll(/word(\\d+) /g))
        if (!(match[1] in seenAt) && !pending.has(match[1])) pending.add(match[1]);
      if (pending.size) {
        const words = [...pending];
        pending.clear();
        for (const word of words) seenAt[word] = 0;
        requestAnimationFrame(() => { const at = performance.timeOrigin + performance.now(); for (const word of words) seenAt[word] = at; });
      }
    }).observe(document.body, { subtree: true, childList: true, characterData: true });
  })()`);
  await page.fill('#composer', 'measure-now');
  await page.click('#send');
  await page.waitForFunction((last) => window.seenAt[last] > 0, String(deltas - 1), { timeout: 60000 });
  for (let i = 0; i < 200 && !peerSeen.has(`word${deltas - 1}`); i++) await sleep(25);
  const pageSeen = await page.evaluate('seenAt');
  const sent = bridge.engineRecords().filter((r) => r.deltaSent).map((r) => [r.deltaSent.trim(), r.atMs]);
  const toPage = sent.filter(([word]) => pageSeen[word.slice(4)] > 0).map(([word, at]) => pageSeen[word.slice(4)] - at);
  const toPeer = sent.filter(([word]) => peerSeen.has(word)).map(([word, at]) => peerSeen.get(word) - at);
  const figure = (values) => `median ${percentile(values, 50).toFixed(1)} ms, p99 ${percentile(values, 99).toFixed(1)} ms (${values.length} of ${sent.length} deltas)`;
  console.log(`delta to page (painted):  ${figure(toPage)}`);
  console.log(`delta to nimbrel-peer:    ${figure(toPeer)}`);
  peer.kill();
} finally {
  await browser.close();
  await bridge.dispose();
}
