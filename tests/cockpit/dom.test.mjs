// How the cockpit shows text from outside in approvals, questions and names.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { shown } from '../../src/cockpit/dom.js';

test('controls in text from outside are shown escaped, not obeyed; lines stay', () => {
  const cases = [
    ['make test', 'make test'],
    ['two\nlines\tand a tab', 'two\nlines\tand a tab'],
    ['a\rb\u0000\u001b[2J\u0085', 'a\\rb\\u0000\\u001B[2J\\u0085'],
    ['\u2028\u2029', '\\u2028\\u2029'],
    ['rm -rf \u202Ebd\u202C', 'rm -rf \\u202Ebd\\u202C'],
    ['\u202A\u202B\u202D\u202F', '\\u202A\\u202B\\u202D\u202F'],
    ['\u2065\u2066\u2067\u2068\u2069\u206A', '\u2065\\u2066\\u2067\\u2068\\u2069\u206A'],
    ['\u200E\u200F עברית é 😀', '\u200E\u200F עברית é 😀'],
    [undefined, ''],
    [42, ''],
  ];
  for (const [text, expected] of cases) assert.equal(shown(text), expected, JSON.stringify(text));
});

test('a notification shows text from outside on one line, cut to 120 characters; the title counts what waits', async () => {
  const { notificationText, titleFor } = await import('../../src/cockpit/attention.js');
  const cases = [
    ['Fix the build: make test', 'Fix the build: make test'],
    ['  two\nlines\r\n\tand tabs  ', 'two lines and tabs'],
    ['x'.repeat(120), 'x'.repeat(120)],
    ['x'.repeat(121), `${'x'.repeat(119)}…`],
    ['😀'.repeat(130), `${'😀'.repeat(119)}…`],
  ];
  for (const [text, expected] of cases) assert.equal(notificationText(text), expected, JSON.stringify(text));
  assert.deepEqual([0, 1, 12].map(titleFor), ['Nimbrel Bridge', '(1) Nimbrel Bridge', '(12) Nimbrel Bridge']);
});
