// Huge and hostile content in the browser cockpit, against a real bridge over the fake engine:
// answers that take marked seconds to read, a megabyte of prose, streamed and opened from history,
// and a page of history whose photos make it larger than the link carries at once.
// Env: NIMBREL_BRIDGE, FAKE_CODEX. Timings are the benchmark's (bench/cockpit_bench.mjs); this
// checks what the page does: where Markdown is read, what shows, that the link holds.

import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { RunningBridge } from '../../tools/browser/bridge.mjs';
import { launch, newPage } from '../../tools/browser/chromium.mjs';

// Emphasis markers by the thousand, a list 800 deep, and a megabyte of prose.
export const hostileAnswers = {
  stars: '*a'.repeat(80000),
  list: Array.from({ length: 800 }, (_, depth) => `${'  '.repeat(depth)}- level ${depth}\n`).join(''),
  prose: 'The build passes after the header became a dependency of the library.\n\n'.repeat(14768),
};
const photoBytes = 2800000;

const folder = mkdtempSync(join(tmpdir(), 'nimbrel-large-'));
const scenario = join(folder, 'scenario.json');
const thread = (id, name) => ({ id, name, preview: name, cwd: '/work', status: { type: 'idle' }, updatedAt: 1763800000 });
writeFileSync(scenario, JSON.stringify({
  methods: {
    'thread/list': { result: { nextCursor: null, data: [thread('thr_live', 'Streamed'), thread('thr_old', 'From history'),
      thread('thr_photos', 'Photos')] } },
    'turn/start': { result: { turn: { id: 'turn-1', status: 'inProgress', items: [] } } },
  },
  history: {
    thr_live: { items: 0 },
    // Newest first: the prose, the list, the stars.
    thr_old: { items: 6, texts: [hostileAnswers.prose, hostileAnswers.list, hostileAnswers.stars] },
    thr_photos: { items: 40, images: { messages: 3, perMessage: 4, bytes: photoBytes } },
  },
  cues: Object.entries(hostileAnswers).map(([name, reply], i) => ({ when: `stream-${name}`,
    actions: [{ streamTurn: { threadId: 'thr_live', turnId: `turn-${name}`, prompt: `stream-${name}`, reply, deltas: 60,
      delayMs: 5 } }] })),
}));

let bridge, browser, page;

// With COCKPIT_SCREENSHOTS set, the states a long answer shows in are written there too.
async function screenshot(name) {
  const shots = process.env.COCKPIT_SCREENSHOTS;
  if (!shots) return;
  mkdirSync(shots, { recursive: true });
  writeFileSync(join(shots, `cockpit-${name}.png`), await page.screenshot());
}
const workers = [];
const sockets = [];

before(async () => {
  bridge = await new RunningBridge({ bridge: process.env.NIMBREL_BRIDGE, fakeCodex: process.env.FAKE_CODEX, scenario }).start();
  browser = await launch();
  page = await newPage(browser);
  page.on('worker', (worker) => workers.push(worker.url()));
  page.on('websocket', (socket) => sockets.push(socket));
  await page.goto(`https://127.0.0.1:${bridge.port}/`);
  await page.fill('#device-name', 'Large Phone');
  await page.click('#save-name');
  await page.locator('#pairing-code', { hasText: /^\d{6}$/ }).waitFor();
  const code = await page.locator('#pairing-code').innerText();
  await bridge.waitFor(`Compare code ${code}.`);
  bridge.type(`approve ${code}`);
  await page.locator('[data-thread]').first().waitFor();
});

after(async () => {
  if (process.env.COCKPIT_DEBUG) console.log(bridge?.log);
  await browser?.close();
  await bridge?.dispose();
  rmSync(folder, { recursive: true, force: true });
});

const answer = (entry) => page.locator(`[data-entry="${entry}"] .md`);
// A reading that the machine's load makes run over its budget shows plain: either is settled.
const settled = (entry, state) => page.locator(`[data-entry="${entry}"] .md[data-state="${state}"]`
  + (state === 'plain' ? '' : `, [data-entry="${entry}"] .md[data-state="plain"]`)).first().waitFor({ timeout: 60000 });

// What the page shows of one answer once it is settled: formatted or plain, its controls.
async function checkHostile(name, entry) {
  if (name === 'stars') {
    // marked would take seconds over the whole: a part at a time it takes some milliseconds.
    await settled(entry, 'read');
    assert.match(await answer(entry).locator('.md-parts').innerText(), /Showing the first 8,000 of 160,000 characters\./);
  } else if (name === 'prose') {
    // A part at a time; the rest a button away, part by part.
    await settled(entry, 'read');
    assert.match(await answer(entry).locator('.md-parts').innerText(), /Showing the first 7,\d{3} of 1,048,528 characters\./);
    await answer(entry).locator('.md-parts').scrollIntoViewIfNeeded();
    await screenshot('long-answer');
    await answer(entry).locator('button.md-more').click();
    await settled(entry, 'read');
    assert.match(await answer(entry).locator('.md-parts').innerText(), /^Part 2 of 132$/m);
    await answer(entry).locator('.md-parts').scrollIntoViewIfNeeded();
    await screenshot('long-answer-paged');
    await answer(entry).locator('button.md-collapse').click();
    await settled(entry, 'read');
  } else {
    await page.locator(`[data-entry="${entry}"] .md[data-state="read"], [data-entry="${entry}"] .md[data-state="plain"]`)
      .first().waitFor({ timeout: 60000 });
  }
}

test('hostile answers stream and settle without marked on the page\'s thread', async () => {
  await page.click('[data-thread="thr_live"]');
  await page.locator('#transcript p.muted', { hasText: 'No messages yet.' }).waitFor();
  for (const name of Object.keys(hostileAnswers)) {
    await page.fill('#composer', `stream-${name}`);
    await page.click('#send');
    await page.locator(`[data-entry="turn-${name}-reply"]`).waitFor({ timeout: 60000 });
    await page.locator('#stop').waitFor({ state: 'detached', timeout: 60000 });
    await checkHostile(name, `turn-${name}-reply`);
  }
  assert.ok(workers.some((url) => url.endsWith('/markdown-worker.js')), 'Markdown is read in a worker');
  // The session list answers while the answers are on the page.
  await page.click('#back');
  await page.locator('[data-thread="thr_old"]').waitFor();
  assert.deepEqual(page.errors, []);
});

test('an answer whose reading runs over its budget shows as text, formatted on request', async () => {
  const shown = await page.evaluate(async () => {
    const { MarkdownView } = await import('./markdown.js');
    // A reader that always runs over, as a slow phone's would on such an answer.
    const view = new MarkdownView(async () => null);
    document.body.append(view.root);
    const settle = async (state) => {
      for (let i = 0; i < 600 && view.root.dataset.state !== state; i++) await new Promise((done) => setTimeout(done, 50));
      return view.root.dataset.state;
    };
    view.render('*a'.repeat(300), false);
    const plain = [await settle('plain'), view.root.querySelector('p.md-plain')?.textContent.slice(0, 6),
      view.root.querySelector('button.md-format')?.textContent];
    view.root.querySelector('button.md-format').click();
    const formatted = [await settle('read'), view.root.querySelectorAll('em').length > 0];
    view.root.remove();
    return { plain, formatted };
  });
  assert.deepEqual(shown, { plain: ['plain', '*a*a*a', 'Show formatted'], formatted: ['read', true] });
});

test('hostile answers open from history', async () => {
  await page.click('[data-thread="thr_old"]');
  for (const [name, entry] of [['stars', 'item-2'], ['list', 'item-4'], ['prose', 'item-6']])
    await checkHostile(name, entry);
  await page.click('#back');
  await page.locator('[data-thread="thr_photos"]').waitFor();
});

test('a page of history larger than the link carries comes in smaller pages, and the link holds', async () => {
  await page.click('[data-thread="thr_photos"]');
  await page.locator('[data-entry="item-40"]').waitFor({ timeout: 60000 });
  // Earlier pages until every photo is in.
  for (let i = 0; i < 40 && await page.locator('#transcript img').count() < 12; i++) {
    const shown = await page.locator('[data-entry]').count();
    await page.click('#earlier');
    await page.waitForFunction((shown) => document.querySelectorAll('[data-entry]').length > shown, shown, { timeout: 60000 });
  }
  assert.equal(await page.locator('#transcript img').count(), 12);
  assert.equal(await page.locator('[data-entry="item-39"]').innerText().then((text) => text.includes('message 39')), true);
  assert.equal(await page.locator('#transcript p.error').count(), 0);
  // One connection all along: the bridge never closed it.
  assert.equal(sockets.length, 1);
  assert.doesNotMatch(bridge.log, /not keeping up/i);
  const asked = bridge.engineRecords().filter((r) => r.received?.method === 'thread/items/list' && r.received.params.threadId === 'thr_photos');
  const limits = asked.map((r) => `${r.received.params.limit}${r.received.params.cursor ? '+' : ''}`);
  assert.equal(limits[0], '40');
  const peak = /VmHWM:\s+(\d+) kB/.exec(readFileSync(`/proc/${bridge.child.pid}/status`, 'utf8'))?.[1];
  console.log(`history of photos: ${asked.length} pages asked (limits ${limits.join(' ')}), bridge's peak memory ${Math.round(peak / 1024)} MiB`);
});
