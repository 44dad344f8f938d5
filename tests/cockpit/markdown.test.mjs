// Which part of a growing message is finished, so that its blocks are built once.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { answerParts, lex, partBudget, settledLength } from '../../src/cockpit/markdown.js';

test('the blocks before the last one are settled; an open fence or a lone block is not', () => {
  const cases = [
    ['one paragraph still growing', ''],
    ['# Title\n\nfirst\n\nsecond gro', '# Title\n\nfirst\n\n'],
    ['intro\n\n```js\nlet a = 1;\n\nlet b', 'intro\n\n'],
    ['- a\n- b\n\n> quote', '- a\n- b\n\n'],
    ['done\n\n', ''],
    ['crlf\r\n\r\nlines\r\n', ''], // the lexer's text is not the message's: nothing settles
  ];
  for (const [text, settled] of cases)
    assert.equal(text.slice(0, settledLength(lex(text), text)), settled, JSON.stringify(text));
});

test('a long answer is cut into parts where a block begins, else at a line, a space or the budget', () => {
  const parts = (text, budget) => {
    const starts = answerParts(text, budget);
    return starts.map((start, i) => text.slice(start, starts[i + 1] ?? text.length));
  };
  const cases = [
    ['short', 10, ['short']],
    ['one\n\ntwo\n\nthree four', 12, ['one\n\ntwo\n\n', 'three four']],
    ['```\na\n\nb\n```\n\nafter the fence', 16, ['```\na\n\nb\n```\n\n', 'after the fence']],
    ['line one\nline two\nline three', 20, ['line one\nline two\n', 'line three']],
    ['words without breaks', 10, ['words ', 'without ', 'breaks']],
    ['*a'.repeat(8), 5, ['*a*a*', 'a*a*a', '*a*a*', 'a']],
    ['ab😀cd', 3, ['ab', '😀c', 'd']],
  ];
  for (const [text, budget, expected] of cases) assert.deepEqual(parts(text, budget), expected, JSON.stringify(text));
  // A megabyte is cut in one pass into parts of at most the budget.
  const long = 'Prose that goes on. '.repeat(52429);
  const starts = answerParts(long);
  assert.ok(starts.every((start, i) => (starts[i + 1] ?? long.length) - start <= partBudget));
  assert.equal(starts.length, Math.ceil(long.length / partBudget));
});
