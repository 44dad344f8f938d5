// Which part of a growing message is finished, so that its blocks are built once.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { lex, settledLength } from '../../src/cockpit/markdown.js';

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
