// The browser cockpit's figures, in one run: the page's transfer size on first load, the time a
// streamed Markdown answer takes to render at three lengths, and how long a reply delta takes from leaving the engine to showing in the page (the frame that paints it) and,
// beside it, to reaching nimbrel-peer's standard output; then, with HUGE=1, huge and hostile
// answers (emphasis markers by the thousand, a list 800 deep, a megabyte of prose) streamed and
// opened from history: the page's longest task and how long a click on "Sessions" takes to show
// the list; with FRAMES=1 as well, the page's slowest frames and the functions that took its time.
// Usage: [HUGE=1 [FRAMES=1]] node bench/cockpit_bench.mjs TREE
// where TREE is a build tree with the bridge, nimbrel-peer and the fake engine.

import { spawn } from 'node:child_process';
import { mkdtempSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';

import { RunningBridge } from '../tools/browser/bridge.mjs';
import { launch, newPage } from '../tools/browser/chromium.mjs';

const tree = resolve(process.argv[2] || 'build/release');
const deltas = 400;
const huge = {
  stars: '*a'.repeat(80000),
  list: Array.from({ length: 800 }, (_, depth) => `${'  '.repeat(depth)}- level ${depth}\n`).join(''),
  prose: 'The build passes after the header became a dependency of the library.\n\n'.repeat(14768),
};
const folder = mkdtempSync(join(tmpdir(), 'nimbrel-cockpit-bench-'));
const scenario = join(folder, 'scenario.json');
writeFileSync(scenario, JSON.stringify({
  methods: {
    'thread/list': { result: { data: [{ id: 'thr_1', name: 'Measured', status: { type: 'idle' } },
      { id: 'thr_old', name: 'Huge history', status: { type: 'idle' } }] } },
    'turn/start': { result: { turn: { id: 'turn-1', status: 'inProgress' } } },
  },
  history: { thr_1: { items: 2 }, thr_old: { items: 6, texts: [huge.prose, huge.list, huge.stars] } },
  cues: [{ when: 'measure-now', actions: [{ streamTurn: { threadId: 'thr_1', turnId: 'turn-1', prompt: 'measure-now',
    deltas, delayMs: 5, recordDeltas: true } }] }, ...Object.entries(huge).map(([name, reply]) => ({ when: `huge-${name}`,
    actions: [{ streamTurn: { threadId: 'thr_1', turnId: `turn-${name}`, prompt: `huge-${name}`, reply, deltas: 60, delayMs: 5 } }] }))],
}));

const sleep = (ms) => new Promise((done) => setTimeout(done, ms));
const percentile = (values, p) => {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];
};

const bridge = await new RunningBridge({ bridge: join(tree, 'src/nimbrel-bridge'),
  fakeCodex: process.env.FAKE_CODEX || join(tree, 'tools/fake-codex/fake-codex'), scenario }).start();
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

  // The page stamps each word once the frame that paints its DOM change has been drawn: a change
  // made in a task waits for the next frame; one made while a frame runs its callbacks is drawn by
  // that frame. "Drawn" is when a message posted from the frame arrives, after its paint.
  await page.click('[data-thread="thr_1"]');
  await page.waitForFunction(() => document.querySelectorAll('[data-entry]').length === 2);
  await page.evaluate(`(() => {
    window.seenAt = {};
    let inFrame = false;
    const frame = window.requestAnimationFrame.bind(window);
    window.requestAnimationFrame = (callback) => frame((time) => {
      inFrame = true;
      try { callback(time); } finally { queueMicrotask(() => { inFrame = false; }); }
    });
    const drawn = new MessageChannel();
    const waiting = [];
    drawn.port1.onmessage = () => {
      const at = performance.timeOrigin + performance.now();
      for (const words of waiting.splice(0, 1)) for (const word of words) seenAt[word] = at;
    };
    const afterPaint = (words) => { waiting.push(words); drawn.port2.postMessage(0); };
    new MutationObserver(() => {
      const words = [];
      for (const match of (document.getElementById('transcript')?.textContent || '').matchAll(/word(\\d+) /g))
        if (!(match[1] in seenAt)) { seenAt[match[1]] = 0; words.push(match[1]); }
      if (!words.length) return;
      if (inFrame) afterPaint(words);
      else frame(() => afterPaint(words));
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

  if (process.env.HUGE) {
    // Every task of the page's main thread over 50 ms, from here on.
    await page.evaluate(() => {
      window.longTasks = [];
      new PerformanceObserver((list) => { for (const entry of list.getEntries()) window.longTasks.push(entry.duration); })
        .observe({ type: 'longtask' });
      window.longFrames = [];
      new PerformanceObserver((list) => {
        for (const entry of list.getEntries())
          window.longFrames.push({ duration: Math.round(entry.duration), blocking: Math.round(entry.blockingDuration),
            render: Math.round(entry.duration - (entry.renderStart - entry.startTime)),
            scripts: entry.scripts.map((s) => `${s.invoker} ${s.sourceFunctionName}@${s.sourceURL.split('/').pop()}:${s.sourceCharPosition} ${Math.round(s.duration)}ms`) });
      }).observe({ type: 'long-animation-frame' });
    });
    const profiler = process.env.FRAMES && await page.context().newCDPSession(page);
    if (profiler) {
      await profiler.send('Profiler.enable');
      await profiler.send('Profiler.setSamplingInterval', { interval: 200 });
      await profiler.send('Profiler.start');
    }
    const clicks = [];
    // "‹ Sessions" clicked, until the list shows; then the session opened again.
    const backAndForth = async (thread) => {
      const start = Date.now();
      await page.click('#back');
      await page.locator('[data-thread]').first().waitFor({ timeout: 120000 });
      clicks.push(Date.now() - start);
      await page.click(`[data-thread="${thread}"]`);
      await page.locator('#transcript').waitFor({ timeout: 120000 });
    };
    for (const name of Object.keys(huge)) {
      await page.fill('#composer', `huge-${name}`);
      await page.click('#send');
      await page.locator(`[data-entry="turn-${name}-reply"]`).waitFor({ timeout: 120000 });
      await backAndForth('thr_1');
      await page.locator('#stop').waitFor({ state: 'detached', timeout: 120000 });
      await backAndForth('thr_1');
    }
    await page.click('#back');
    await page.click('[data-thread="thr_old"]');
    await page.locator('[data-entry="item-6"]').waitFor({ timeout: 120000 });
    await sleep(1000);
    await backAndForth('thr_old');
    await sleep(1000);
    const tasks = await page.evaluate('longTasks');
    if (profiler) {
      const { profile } = await profiler.send('Profiler.stop');
      const self = new Map();
      const interval = (profile.endTime - profile.startTime) / profile.samples.length / 1000;
      for (const node of profile.nodes) {
        const { functionName, url, lineNumber } = node.callFrame;
        const key = `${functionName || '(anon)'} ${url.split('/').pop()}:${lineNumber + 1}`;
        self.set(key, (self.get(key) || 0) + node.hitCount * interval);
      }
      for (const [key, ms] of [...self].sort((a, b) => b[1] - a[1]).slice(0, 25)) console.log(`${ms.toFixed(0).padStart(6)} ms  ${key}`);
    }
    if (process.env.FRAMES)
      for (const frame of (await page.evaluate('longFrames')).filter((f) => f.blocking > 0)) console.log(JSON.stringify(frame));
    console.log(`huge answers streamed and opened: ${tasks.length} tasks over 50 ms, the longest ${Math.max(0, ...tasks).toFixed(0)} ms;`
      + ` "Sessions" shown in median ${percentile(clicks, 50)} ms, at most ${Math.max(...clicks)} ms (${clicks.length} clicks)`);
  }
} finally {
  await browser.close();
  await bridge.dispose();
}
