// How the cockpit shows a session: history pages in order, live deltas, and long output shortened.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Transcript, entriesFromPage, shownText } from '../../src/cockpit/transcript.js';

const message = (id, text) => ({ type: 'agentMessage', id, text });

test('history pages come newest first and are shown oldest first', () => {
  const byItems = entriesFromPage({ data: [{ item: message('3', 'c') }, { item: message('2', 'b') }, { item: { type: 'unknown', id: 'x' } }, null] }, true);
  assert.deepEqual(byItems.map((e) => e.id), ['2', '3']);
  const byTurns = entriesFromPage({ data: [{ items: [message('3', 'c'), message('4', 'd')] }, { items: [message('1', 'a')] }] }, false);
  assert.deepEqual(byTurns.map((e) => e.id), ['1', '3', '4']);
  assert.deepEqual(entriesFromPage({ data: 'not a list' }, true), []);
});

test('live events build entries, and a completed item settles them', () => {
  const transcript = new Transcript();
  transcript.prepend([{ id: 'old', kind: 'user', title: 'You', text: 'hi', status: null }]);
  transcript.apply('item/agentMessage/delta', { itemId: 'm', delta: 'Hel' });
  transcript.apply('item/agentMessage/delta', { itemId: 'm', delta: 'lo' });
  transcript.apply('item/reasoning/summaryTextDelta', { itemId: 'r', delta: 'one', summaryIndex: 0 });
  transcript.apply('item/reasoning/summaryTextDelta', { itemId: 'r', delta: 'two', summaryIndex: 1 });
  assert.deepEqual(transcript.entries.map((e) => [e.id, e.text]), [['old', 'hi'], ['m', 'Hello'], ['r', 'one\n\ntwo']]);
  // An item that completes with no text keeps what its deltas built.
  transcript.apply('item/completed', { item: message('m', '') });
  assert.equal(transcript.entries[1].text, 'Hello');
  assert.equal(transcript.entries[1].status, 'completed');
  transcript.apply('item/completed', { item: { type: 'commandExecution', id: 'c', command: 'ls', aggregatedOutput: 'a', status: 'completed' } });
  assert.equal(transcript.entries[3].title, '$ ls');
});

test('the newest page read again after a reconnect is merged with what is held, each entry once', () => {
  const entry = (id, text = id) => ({ id, kind: 'assistant', title: 'Codex', text, status: 'completed' });
  const cases = [
    // held, page, merged (null: nothing in common, nothing changed)
    [['a', 'b', 'c:wor'], ['b', 'c:word0 word1', 'd'], ['a', 'b', 'c:word0 word1', 'd']],
    [['a', 'live'], ['z', 'a', 'b'], ['z', 'a', 'b', 'live']],
    [['a', 'b'], ['x', 'b'], ['a', 'x', 'b']],
    [[], ['a', 'b'], ['a', 'b']],
    [['a', 'b'], ['c', 'd'], null],
  ];
  const made = (list) => list.map((e) => entry(...e.split(':')));
  for (const [held, page, merged] of cases) {
    const transcript = new Transcript();
    transcript.prepend(made(held));
    assert.equal(transcript.mergeNewest(made(page)), merged !== null, JSON.stringify(page));
    const shown = transcript.entries.map((e) => (e.text === e.id ? e.id : `${e.id}:${e.text}`));
    assert.deepEqual(shown, merged ?? held, JSON.stringify(page));
    assert.equal(transcript.byID.size, transcript.entries.length);
  }
});

test('long output is shortened: the latest part while live, head and tail once settled', () => {
  const entry = { kind: 'command', text: `${'a'.repeat(3000)}${'b'.repeat(2000)}` };
  const live = shownText(entry, true);
  assert.ok(live.text.startsWith('… showing latest live output …\n\n') && live.text.endsWith('b'.repeat(2000)));
  const settled = shownText(entry, false);
  assert.ok(settled.shortened && settled.text.startsWith('a'.repeat(3000)) && settled.text.endsWith('b'.repeat(1000)));
  assert.equal(shownText(entry, false, true).text, entry.text);
  assert.equal(shownText({ kind: 'reasoning', text: '' }, true).text, 'Waiting for a thinking summary…');
});
