// What a turn changed: Codex's unified diff of the whole turn, split into files with their added and
// removed lines, and the "Changes" card that shows it, each file folded until the user opens it.

import { el, button } from './dom.js';

// Lines of one file shown before "Show all"; a diff is text from outside and may be any size.
export const shownDiffLines = 400;

const pathIn = (header) => {
  // "diff --git a/x b/x": the new side's path; quoted paths keep their quotes' content.
  const match = /^diff --git (?:"?a\/(.*?)"?) (?:"?b\/(.*?)"?)$/.exec(header);
  return match ? match[2] || match[1] : header.slice('diff --git '.length);
};

// [{ path, added, removed, lines: [{ kind: 'add' | 'remove' | 'context' | 'hunk' | 'meta', text }] }]
// A hunk runs for the line counts its header gives, so a removed line that reads "--- x" stays one.
export function parseUnifiedDiff(diff) {
  const files = [];
  let file = null;
  let oldLeft = 0;
  let newLeft = 0;
  for (const line of (typeof diff === 'string' ? diff : '').split('\n')) {
    const inHunk = oldLeft > 0 || newLeft > 0;
    if (inHunk && file) {
      if (line.startsWith('+')) {
        file.added += 1;
        newLeft -= 1;
        file.lines.push({ kind: 'add', text: line });
        continue;
      }
      if (line.startsWith('-')) {
        file.removed += 1;
        oldLeft -= 1;
        file.lines.push({ kind: 'remove', text: line });
        continue;
      }
      if (line.startsWith(' ') || line === '') {
        oldLeft -= 1;
        newLeft -= 1;
        file.lines.push({ kind: 'context', text: line });
        continue;
      }
    }
    oldLeft = newLeft = 0;
    if (line.startsWith('diff --git ')) {
      file = { path: pathIn(line), added: 0, removed: 0, lines: [] };
      files.push(file);
    } else if (line.startsWith('+++ ') || line.startsWith('--- ')) {
      const path = line.slice(4).replace(/^[ab]\//, '');
      if (!file) files.push(file = { path: '', added: 0, removed: 0, lines: [] });
      if (!file.path && path !== '/dev/null') file.path = path;
    } else if (file && line.startsWith('@@')) {
      const counts = /^@@ -\d+(?:,(\d+))? \+\d+(?:,(\d+))? @@/.exec(line);
      oldLeft = counts ? Number(counts[1] ?? 1) : 0;
      newLeft = counts ? Number(counts[2] ?? 1) : 0;
      file.lines.push({ kind: 'hunk', text: line });
    } else if (file && line) {
      // "\ No newline at end of file", modes, renames, binary files.
      file.lines.push({ kind: 'meta', text: line });
    }
  }
  return files;
}

export const fileAnchor = (turnID, path) => `changes-${turnID}-${path}`;

// The file of a turn's diff that an absolute path names: the same path, or one it ends with.
export function diffPathFor(paths, absolute) {
  return paths.find((path) => path && (absolute === path || absolute.endsWith(`/${path}`))) ?? null;
}

// The card for one turn's newest diff. openPaths holds the files shown unfolded, kept as the user
// opens and folds them, so that a newer diff of the same turn keeps them open.
export function changesCard(turnID, diff, openPaths = new Set()) {
  const files = parseUnifiedDiff(diff);
  const added = files.reduce((sum, file) => sum + file.added, 0);
  const removed = files.reduce((sum, file) => sum + file.removed, 0);
  const card = el('section', { className: 'changes', dataset: { changes: turnID } },
    el('h3', {}, 'Changes ', el('small', {}, files.length === 1 ? '1 file changed' : `${files.length} files changed`, ' ',
      el('span', { className: 'added' }, `+${added}`), ' ', el('span', { className: 'removed' }, `−${removed}`))));
  if (!files.length) card.append(el('p', { className: 'muted' }, 'No changes remain from this turn.'));
  for (const file of files) card.append(fileDetails(turnID, file, openPaths));
  return card;
}

function fileDetails(turnID, file, openPaths) {
  const open = openPaths.has(file.path);
  const details = el('details', { className: 'diff-file', open, dataset: { path: file.path } });
  details.id = fileAnchor(turnID, file.path);
  details.append(el('summary', {}, el('span', { className: 'diff-path' }, file.path || 'A file'), ' ',
    el('span', { className: 'added' }, `+${file.added}`), ' ', el('span', { className: 'removed' }, `−${file.removed}`)));
  const body = el('pre', { className: 'diff' });
  const fill = (count) => {
    body.replaceChildren(...file.lines.slice(0, count).map((line) => el('span', { className: `diff-${line.kind}` }, line.text)));
  };
  // Built when first opened: a folded file costs nothing.
  let built = false;
  const build = () => {
    if (built) return;
    built = true;
    fill(shownDiffLines);
    details.append(body);
    if (file.lines.length > shownDiffLines)
      details.append(button(`Show all ${file.lines.length} lines`, (event) => { fill(file.lines.length); event.target.remove(); },
        'plain', undefined));
  };
  details.addEventListener('toggle', () => {
    if (details.open) openPaths.add(file.path);
    else openPaths.delete(file.path);
    if (details.open) build();
  });
  if (open) build();
  return details;
}
