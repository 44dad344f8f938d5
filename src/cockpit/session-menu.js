// A session's menu on its screen: rename it, fork it, or archive it (with a way back). The menu
// keeps its own small state; the page gives it the link's request and what to do after each action.

import { el, button, shown } from './dom.js';

let open = null; // { threadID, mode: 'menu' | 'rename' | 'archive', busy, error }

export function closeSessionMenu() {
  open = null;
}

// deps: { request(method, params), render(), forkSettings(threadID), opened(thread, fromID),
//         archived(threadID, title), renamed(threadID, name) }
export function sessionMenu(threadID, title, deps) {
  const current = open?.threadID === threadID ? open : null;
  const toggle = button('⋯', () => { open = current ? null : { threadID, mode: 'menu' }; deps.render(); }, 'plain', 'session-menu');
  toggle.setAttribute('aria-label', 'Session actions');
  toggle.setAttribute('aria-expanded', current ? 'true' : 'false');
  return el('div', { className: 'session-menu' }, toggle, current ? panel(current, title, deps) : null);
}

function panel(current, title, deps) {
  const act = async (method, params, after) => {
    current.busy = true;
    current.error = '';
    deps.render();
    try {
      const result = await deps.request(method, params);
      open = null;
      after(result);
    } catch (error) {
      current.busy = false;
      current.error = error.message;
    }
    deps.render();
  };
  const id = current.threadID;
  const error = current.error ? el('p', { className: 'error', id: 'session-menu-error' }, current.error) : null;
  if (current.mode === 'rename') {
    const field = el('input', { id: 'session-name', value: title, maxLength: 160, 'aria-label': 'Session name' });
    const save = () => {
      const name = field.value.replace(/\s+/g, ' ').trim();
      if (name) act('thread/name/set', { threadId: id, name }, () => deps.renamed(id, name));
    };
    field.addEventListener('keydown', (event) => { if (event.key === 'Enter') { event.preventDefault(); save(); } });
    queueMicrotask(() => field.isConnected && field.select());
    return el('div', { className: 'menu-panel card' }, el('label', { htmlFor: 'session-name' }, 'Name'), field, error,
      el('div', { className: 'actions' }, button('Cancel', () => { current.mode = 'menu'; deps.render(); }),
        button('Rename', save, 'prominent', 'rename-confirm')));
  }
  if (current.mode === 'archive')
    return el('div', { className: 'menu-panel card' }, el('p', {}, `Archive “${shown(title)}”?`),
      el('p', { className: 'muted' }, 'It leaves the list here and on the computer. Codex keeps it in its archive.'), error,
      el('div', { className: 'actions' }, button('Cancel', () => { current.mode = 'menu'; deps.render(); }),
        button(current.busy ? 'Archiving…' : 'Archive', () => act('thread/archive', { threadId: id }, () => deps.archived(id, title)),
          'destructive', 'archive-confirm')));
  return el('div', { className: 'menu-panel card', role: 'menu' },
    button('Rename…', () => { current.mode = 'rename'; deps.render(); }, 'plain', 'rename-session'),
    button(current.busy ? 'Forking…' : 'Fork', () => act('thread/fork', { threadId: id, excludeTurns: true, ...deps.forkSettings(id) },
      (result) => { if (result?.thread && typeof result.thread.id === 'string') deps.opened(result.thread, id); }),
    'plain', 'fork-session'),
    button('Archive…', () => { current.mode = 'archive'; deps.render(); }, 'destructive', 'archive-session'),
    error);
}
