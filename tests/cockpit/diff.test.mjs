// A turn's unified diff, split into files with their counts.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { diffPathFor, parseUnifiedDiff } from '../../src/cockpit/diff.js';

test('files, their counts and their lines, whatever the lines say', () => {
  const diff = [
    'diff --git a/src/app.js b/src/app.js', 'index 1..2 100644', '--- a/src/app.js', '+++ b/src/app.js',
    '@@ -1,4 +1,4 @@', ' keep', '--- a removed line that looks like a header', '+++ an added one too', ' keep', '',
    '@@ -10 +10,2 @@', '-old', '+new', '+more',
    'diff --git a/notes.txt b/notes.txt', 'new file mode 100644', '--- /dev/null', '+++ b/notes.txt',
    '@@ -0,0 +1 @@', '+hello', '\\ No newline at end of file',
    'diff --git a/logo.png b/logo.png', 'Binary files a/logo.png and b/logo.png differ', '',
  ].join('\n');
  const files = parseUnifiedDiff(diff);
  assert.deepEqual(files.map((f) => [f.path, f.added, f.removed]), [['src/app.js', 3, 2], ['notes.txt', 1, 0], ['logo.png', 0, 0]]);
  assert.deepEqual(files[0].lines.map((l) => l.kind).join(' '), 'meta hunk context remove add context context hunk remove add add');
  assert.deepEqual(files[1].lines.at(-1), { kind: 'meta', text: '\\ No newline at end of file' });
  for (const nothing of ['', undefined, 42, 'not a diff at all']) assert.deepEqual(parseUnifiedDiff(nothing), []);
});

test('a file change names its file of the diff by the path relative to the folder', () => {
  const paths = ['src/app.js', 'app.js'];
  assert.equal(diffPathFor(paths, '/home/ada/shop/src/app.js'), 'src/app.js');
  assert.equal(diffPathFor(paths, '/home/ada/shop/app.js'), 'app.js');
  assert.equal(diffPathFor(paths, '/home/ada/shop/webapp.js'), null);
});
