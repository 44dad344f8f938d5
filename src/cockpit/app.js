// The browser cockpit: pairs this browser with the computer, then lists Codex sessions, shows a
// session's history and its live turn, starts, steers and stops turns, answers approvals and
// questions, and shows usage. Text from the computer is always set as text, never as markup.

import { BridgeLink } from './link.js';
import * as store from './store.js';
import { Transcript, entriesFromPage, isStreaming, shownText } from './transcript.js';
import { el, clear, button, shown, replaceKeeping } from './dom.js';
import { sessionMenu, closeSessionMenu } from './session-menu.js';
import { MarkdownView } from './markdown.js';
import { changesCard, diffPathFor, fileAnchor, parseUnifiedDiff } from './diff.js';
import { customMode, defaultModeKey, modeFor, permissionModes, threadParams, unchosenMode } from './modes.js';
import { elicitationCard, permissionsCard } from './requests.js';
import { attachControls, attachedImages, dropImages, imageInputs, messageImages, pastedImages } from './attachments.js';
import { Attention } from './attention.js';

const app = document.getElementById('app');
const itemsPageLimit = 40;

const state = {
  screen: 'sessions',
  engine: { ready: false, status: 'Waiting for the computer…' },
  threads: [],
  search: '',
  listError: '',
  sessions: new Map(),
  current: null,
  approvals: new Map(),
  questions: new Map(),
  drafts: new Map(),
  models: [],
  model: '',
  effort: '',
  usage: null,
  usageError: '',
  notice: '',
  modeChoice: defaultModeKey, // the mode new sessions start in
  modes: new Map(), // each session's mode as the computer keeps it, by thread id
};
let link;
const attention = new Attention();

// ---- first use: the name this browser goes by

function defaultName() {
  const agent = navigator.userAgent;
  const browser = /Edg\//.test(agent) ? 'Edge' : /Firefox\//.test(agent) ? 'Firefox'
    : /Chrom(e|ium)\//.test(agent) ? 'Chrome' : /Safari\//.test(agent) ? 'Safari' : 'Browser';
  const platform = /iPhone|iPad/.test(agent) ? 'iOS'
    : /Android/.test(agent) ? 'Android' : /Mac OS X/.test(agent) ? 'macOS'
      : /Windows/.test(agent) ? 'Windows' : /Linux/.test(agent) ? 'Linux' : 'this device';
  return `${browser} on ${platform}`;
}

function askName() {
  return new Promise((resolve) => {
    const input = el('input', { id: 'device-name', value: defaultName(), maxLength: 58, autocomplete: 'off' });
    const form = el('form', { className: 'card', onsubmit: (event) => {
      event.preventDefault();
      const name = input.value.replace(/[\u0000-\u001f\u007f-\u009f\u2028\u2029\u202a-\u202e\u2066-\u2069]/g, '').trim();
      if (name) resolve(name);
    } },
    el('h1', {}, 'Nimbrel Bridge'),
    el('p', {}, 'Name this device. The computer shows the name when you pair, and in its list of trusted devices.'),
    el('label', { htmlFor: 'device-name' }, 'Device name'), input,
    el('button', { type: 'submit', className: 'prominent', id: 'save-name' }, 'Continue'));
    clear(app).append(form);
    input.focus();
  });
}

// ---- the link's state

function linkScreen() {
  const computer = shown(link.computerName) || 'the computer';
  switch (link.state) {
    case 'pairing':
      return el('section', { className: 'card', id: 'pairing' },
        el('h1', {}, `Pair with ${computer}`),
        el('p', {}, 'Check that the computer shows the same code, then approve it there.'),
        el('p', { className: 'code', id: 'pairing-code' }, link.code),
        el('p', { className: 'muted' }, 'Waiting for the computer…'));
    case 'rejected':
      return el('section', { className: 'card', id: 'pairing-rejected' },
        el('h1', {}, 'Pairing refused'),
        el('p', {}, `${computer} refused to pair with this device.`),
        el('p', { className: 'muted' }, 'It hears a new request from this device after half a minute.'),
        button('Ask again', () => link.askAgain(), 'prominent', 'ask-again'));
    case 'keyChanged':
      return el('section', { className: 'card alert', id: 'key-changed' },
        el('h1', {}, 'This computer’s key has changed'),
        el('p', {}, `${computer} gives the identity of a computer paired here before, but another key. ` +
          'It may be another machine pretending to be it. Nothing was sent to it.'),
        el('p', {}, 'If its owner has reset it on purpose, clear this site’s data in the browser and pair again.'));
    default:
      return el('section', { className: 'card', id: 'connecting' },
        el('h1', {}, 'Nimbrel Bridge'),
        el('p', { className: 'muted' }, link.state === 'offline' ? 'Reconnecting to the computer…' : 'Connecting to the computer…'));
  }
}

// ---- rendering

function render() {
  attention.showCount(state.approvals.size + state.questions.size);
  if (link.state !== 'ready' && !(link.state === 'offline' && state.everReady)) {
    clear(app).append(linkScreen());
    return;
  }
  const screens = { sessions: sessionsScreen, session: sessionScreen, new: newSessionScreen, usage: usageScreen };
  const next = el('div', {}, header(), requestsRegion(), (screens[state.screen] || sessionsScreen)());
  if (!keepComposer(next)) clear(app).append(...next.childNodes);
  if (state.screen === 'session') scrollTranscriptIfFollowing(true);
}

// The composer being written in stays in the page while the rest is built again, where it still
// holds the session's draft: a long draft is laid out once, not at every render. Elsewhere the new
// composer takes the draft.
function keepComposer(next) {
  const slot = next.querySelector('textarea[data-draft]');
  if (!slot) return false;
  const draft = state.drafts.get(slot.dataset.draft) || '';
  const kept = app.querySelector('textarea[data-draft]');
  if (kept?.dataset.draft === slot.dataset.draft && kept.value === draft && replaceKeeping(app, next, kept, slot)) {
    for (const name of ['placeholder', 'oninput', 'onkeydown', 'onpaste']) kept[name] = slot[name];
    return true;
  }
  slot.value = draft;
  return false;
}

function header() {
  const offline = link.state !== 'ready';
  return el('header', { className: 'bar' },
    state.screen === 'sessions' ? el('span', { className: 'title' }, shown(link.computerName))
      : button('‹ Sessions', () => show('sessions'), 'plain', 'back'),
    el('span', { className: `status ${offline ? 'off' : state.engine.ready ? 'on' : 'wait'}`, id: 'engine-status' },
      offline ? 'Reconnecting…' : state.engine.status),
    button('Usage', () => show('usage'), 'plain', 'usage'));
}

function show(screen, current = state.current) {
  state.screen = screen;
  state.current = current;
  state.notice = '';
  state.archivedNotice = null;
  closeSessionMenu();
  if (screen === 'usage') readUsage();
  if (screen === 'session') openSession(current);
  render();
}

// ---- approvals and questions, above every screen

// What a notification says of a request: a headline, and a detail line.
function requestHeadline(method, params) {
  if (method === 'item/commandExecution/requestApproval') return 'Codex asks to run a command';
  if (method === 'item/permissions/requestApproval') return 'Codex asks for more access';
  if (method === 'mcpServer/elicitation/request') return `${shown(params.serverName) || 'A tool server'} asks for your input`;
  return 'Codex asks to change files';
}

function requestDetail(method, params) {
  if (method === 'item/commandExecution/requestApproval') return shown(params.command);
  if (method === 'mcpServer/elicitation/request') return shown(params.message);
  return shown(params.reason);
}

const requestDeps = {
  answer: (id, method, result) => link.answer(id, method, result),
  done: (id) => { dropRequest(id); render(); },
  label: (threadID) => sessionLabel(threadID),
};

function requestCard(id, method, body) {
  if (method === 'item/permissions/requestApproval') return permissionsCard(id, body, requestDeps);
  if (method === 'mcpServer/elicitation/request') {
    if (!state.drafts.has(id)) state.drafts.set(id, Object.create(null)); // field names are the server's
    return elicitationCard(id, body, state.drafts.get(id), requestDeps);
  }
  return approvalCard(id, method, body);
}

function requestsRegion() {
  const region = el('section', { id: 'requests' });
  for (const [id, { method, body }] of state.approvals) region.append(requestCard(id, method, body));
  for (const [id, body] of state.questions) region.append(questionCard(id, body));
  return region;
}

function approvalCard(id, method, body) {
  const isCommand = method === 'item/commandExecution/requestApproval';
  const decide = (decision) => {
    link.answer(id, method, { decision });
    dropRequest(id);
    render();
  };
  return el('article', { className: 'card request', dataset: { request: id } },
    el('h2', {}, isCommand ? 'Codex asks to run a command' : 'Codex asks to change files'),
    sessionLabel(body.threadId),
    isCommand ? el('pre', { className: 'command' }, shown(body.command)) : null,
    isCommand && body.cwd ? el('p', { className: 'muted' }, `in ${shown(body.cwd)}`) : null,
    !isCommand && body.reason ? el('p', {}, shown(body.reason)) : null,
    el('div', { className: 'actions' },
      button('Decline', () => decide('decline'), 'destructive', 'decline'),
      button('Allow Similar This Session', () => decide('acceptForSession'), 'plain', 'accept-session'),
      button('Allow Once', () => decide('accept'), 'prominent', 'accept')));
}

function questionCard(id, body) {
  const questions = Array.isArray(body.questions) ? body.questions : [];
  const draft = state.drafts.get(id) || {};
  state.drafts.set(id, draft);
  const form = el('form', { className: 'card request', dataset: { request: id }, onsubmit: (event) => {
    event.preventDefault();
    const answers = {};
    for (const question of questions) {
      const answer = (draft[question.id] || '').trim();
      if (!answer) return;
      answers[question.id] = { answers: [answer] };
    }
    link.answer(id, 'item/tool/requestUserInput', { answers });
    dropRequest(id);
    render();
  } }, el('h2', {}, 'Codex has a question'), sessionLabel(body.threadId));
  questions.forEach((question, index) => {
    const name = `q-${id}-${index}`;
    const field = el('fieldset', {}, el('legend', {}, shown(question.header) || 'Question'),
      el('p', {}, shown(question.question)));
    const options = Array.isArray(question.options) ? question.options : [];
    for (const option of options) {
      const label = text(option?.label);
      field.append(el('label', { className: 'option' },
        el('input', { type: 'radio', name, value: label, checked: draft[question.id] === label,
          onchange: () => { draft[question.id] = label; } }),
        el('span', {}, shown(label)), option?.description ? el('small', {}, shown(option.description)) : null));
    }
    const typed = options.some((o) => text(o?.label) === draft[question.id]) ? '' : draft[question.id] || '';
    field.append(el('input', { type: question.isSecret ? 'password' : 'text', value: typed,
      placeholder: options.length ? 'Write a response…' : 'Your response', autocomplete: 'off',
      'aria-label': 'Your response', className: 'response',
      oninput: (event) => {
        draft[question.id] = event.target.value;
        for (const radio of field.querySelectorAll('input[type=radio]')) radio.checked = false;
      } }));
    form.append(field);
  });
  form.append(el('div', { className: 'actions' }, el('button', { type: 'submit', className: 'prominent' }, 'Send answer')));
  return form;
}

function sessionLabel(threadID) {
  const thread = state.threads.find((t) => t.id === threadID);
  return thread ? el('p', { className: 'muted' }, threadTitle(thread)) : null;
}

// ---- the session list

const text = (value) => (typeof value === 'string' ? value : '');
const threadTitle = (thread) => shown(thread.name) || shown(thread.preview) || 'Untitled Codex session';
const threadStatus = (thread) => text(thread.status?.type ?? thread.status);

function sessionsScreen() {
  const search = el('input', { type: 'search', id: 'search', placeholder: 'Search sessions', value: state.search,
    'aria-label': 'Search sessions', oninput: (event) => { state.search = event.target.value; listSoon(); } });
  const list = el('ul', { className: 'sessions', id: 'session-list' });
  for (const thread of state.threads)
    list.append(el('li', {}, el('button', { className: 'session-row', dataset: { thread: thread.id },
      onclick: () => show('session', thread.id) },
    el('span', { className: 'row-title' }, threadTitle(thread)),
    el('span', { className: 'row-detail' }, [text(thread.cwd), when(thread.updatedAt), threadStatus(thread) === 'active' ? 'Running' : '']
      .filter((part) => part).join(' · ')))));
  const archived = state.archivedNotice;
  return el('main', { className: 'screen' },
    el('div', { className: 'toolbar' }, search, button('New', () => show('new'), 'prominent', 'new-session')),
    archived ? el('p', { className: 'notice', id: 'archived-notice' }, `Archived “${shown(archived.title)}”. `,
      button('Undo', () => unarchive(archived), 'plain', 'unarchive')) : null,
    state.listError ? el('p', { className: 'error' }, state.listError) : null,
    state.threads.length ? list : el('p', { className: 'muted' }, state.search ? 'No sessions match.' : 'No sessions yet.'),
    notifySwitch());
}

// The user's opt-in to notifications: switching it on is what lets the browser ask for permission.
function notifySwitch() {
  if (!attention.supported)
    return el('p', { className: 'muted notify' }, 'This browser shows no notifications for this page; its title counts what waits for you.');
  return el('div', { className: 'notify' },
    el('label', { className: 'switch' },
      el('input', { type: 'checkbox', id: 'notify', role: 'switch', checked: attention.enabled, onchange: async (event) => {
        await attention.setWanted(event.target.checked);
        render();
      } }),
      el('span', {}, 'Notify me when Codex needs me while this page is in the background')),
    attention.problem ? el('p', { className: 'error', id: 'notify-problem' }, attention.problem) : null);
}

function when(seconds) {
  if (typeof seconds !== 'number') return '';
  return new Date(seconds * 1000).toLocaleString(undefined, { dateStyle: 'medium', timeStyle: 'short' });
}

let listTimer;
function listSoon() {
  clearTimeout(listTimer);
  listTimer = setTimeout(readThreads, 250);
}

async function readThreads() {
  const body = { limit: 50, sortKey: 'recency_at', sortDirection: 'desc', sourceKinds: ['cli', 'appServer', 'vscode'] };
  if (state.search.trim()) body.searchTerm = state.search.trim();
  try {
    const page = await link.request('thread/list', body);
    state.threads = Array.isArray(page?.data) ? page.data.filter((t) => t && typeof t.id === 'string') : [];
    state.listError = '';
  } catch (error) {
    state.listError = error.message;
  }
  if (state.screen === 'sessions') rerenderKeepingFocus();
}

function rerenderKeepingFocus() {
  const focused = document.activeElement?.id;
  const caret = document.activeElement?.selectionStart;
  render();
  const again = focused && document.getElementById(focused);
  if (again) {
    again.focus();
    if (typeof caret === 'number' && again.setSelectionRange) again.setSelectionRange(caret, caret);
  }
}

// ---- one session

function sessionFor(id) {
  if (!state.sessions.has(id))
    state.sessions.set(id, { transcript: new Transcript(), cursor: null, byItems: true, loaded: false,
      loading: false, turnID: null, running: false, error: '', resumed: false, following: true });
  return state.sessions.get(id);
}

async function openSession(id) {
  const session = sessionFor(id);
  if (!session.loaded && !session.loading) await loadPage(id);
}

// A page of history, newest first, by items, or by turns where the engine does not page by items;
// the newest without a cursor. Where the computer finds the reply too large to send (photos make
// items large), the same page is asked again with half as many items, down to one, and the session
// keeps the smaller count.
async function historyPage(id, byItems, cursor) {
  const session = sessionFor(id);
  for (;;) {
    const limit = byItems ? session.pageLimit || itemsPageLimit : 1;
    try {
      return await link.request(byItems ? 'thread/items/list' : 'thread/turns/list', {
        threadId: id, limit, sortDirection: 'desc',
        ...(byItems ? {} : { itemsView: 'full' }), ...(cursor ? { cursor } : {}) });
    } catch (error) {
      if (!/too large to send/.test(error.message) || limit <= 1) throw error;
      session.pageLimit = Math.max(1, Math.floor(limit / 2));
    }
  }
}

async function loadPage(id) {
  const session = sessionFor(id);
  session.loading = true;
  const first = !session.loaded;
  try {
    let page;
    try {
      page = await historyPage(id, session.byItems, session.cursor);
    } catch (error) {
      if (!(first && session.byItems && /items\/list|item pagination|not supported/i.test(error.message))) throw error;
      session.byItems = false;
      page = await historyPage(id, false, session.cursor);
    }
    session.transcript.prepend(entriesFromPage(page, session.byItems));
    session.cursor = typeof page?.nextCursor === 'string' ? page.nextCursor : null;
    if (first) noteNewestTurn(session, page);
    session.error = '';
  } catch (error) {
    if (first && /not materialized/.test(error.message)) session.cursor = null;
    else session.error = first ? error.message : `Earlier messages could not be loaded: ${error.message}`;
  }
  session.loaded = true;
  session.loading = false;
  if (state.screen === 'session' && state.current === id) rerenderKeepingFocus();
}

// After a reconnect: the open session's newest page, merged with what it holds, so that what was
// streamed while away shows once. Where more happened than a page holds, it starts from that page.
async function catchUp(id) {
  const session = sessionFor(id);
  if (!session.loaded || session.loading) return openSession(id);
  session.loading = true;
  try {
    const page = await historyPage(id, session.byItems, null);
    const entries = entriesFromPage(page, session.byItems);
    const wasEmpty = !session.transcript.entries.length;
    if (!session.transcript.mergeNewest(entries)) {
      session.transcript = new Transcript();
      session.transcript.prepend(entries);
    }
    if (wasEmpty || session.transcript.entries.length === entries.length)
      session.cursor = typeof page?.nextCursor === 'string' ? page.nextCursor : null;
    noteNewestTurn(session, page);
    session.error = '';
    settleUnconfirmed(id);
  } catch (error) {
    session.error = `The session could not be read again: ${error.message}`;
  }
  session.loading = false;
  if (state.screen === 'session' && state.current === id) rerenderKeepingFocus();
}

// A page of turns, newest first, tells whether the newest still runs, and its id; one that ended
// while away shows ended. A page of items tells neither.
function noteNewestTurn(session, page) {
  const newest = session.byItems ? null : Array.isArray(page?.data) ? page.data[0] : null;
  if (!newest || typeof newest !== 'object') return;
  const running = newest.status === 'inProgress' && !!text(newest.id);
  Object.assign(session, { running, turnID: running ? text(newest.id) : null });
}

// The id of the turn the session runs, where the page knows that one runs but not which (after a
// reload or a reconnect, or a turn another device started): Codex's newest turn, if it still runs.
async function runningTurnID(id) {
  const session = sessionFor(id);
  if (session.turnID || !session.running) return session.turnID;
  const page = await link.request('thread/turns/list', { threadId: id, limit: 1, sortDirection: 'desc', itemsView: 'notLoaded' });
  const newest = Array.isArray(page?.data) ? page.data[0] : null;
  const running = newest?.status === 'inProgress' && !!text(newest?.id);
  Object.assign(session, { running, turnID: running ? text(newest.id) : null });
  return session.turnID;
}

// A message whose sending the connection cut stays in the composer; once the session is read
// again and holds a message from the user with its id, it went through, and leaves the composer.
function settleUnconfirmed(id) {
  const session = sessionFor(id);
  if (!session.unconfirmed) return;
  const { id: sentID, images } = session.unconfirmed;
  if (session.transcript.entries.some((entry) => entry.kind === 'user' && entry.clientId === sentID)) {
    state.drafts.delete(`composer-${id}`);
    dropImages(id, images);
    state.notice = '';
  }
  session.unconfirmed = null;
}

function sessionScreen() {
  const id = state.current;
  const session = sessionFor(id);
  const thread = state.threads.find((t) => t.id === id) || { id };
  const transcript = el('div', { className: 'transcript', id: 'transcript',
    onscroll: (event) => { const t = event.target; session.following = t.scrollHeight - t.scrollTop - t.clientHeight < 40; } });
  if (session.cursor)
    transcript.append(button(session.loading ? 'Loading…' : 'Show earlier messages', () => loadPage(id), 'plain', 'earlier'));
  if (!session.loaded) transcript.append(el('p', { className: 'muted' }, 'Loading the history…'));
  else if (!session.transcript.entries.length && !session.error) transcript.append(el('p', { className: 'muted' }, 'No messages yet.'));
  for (const entry of session.transcript.entries) transcript.append(entryNode(entry, session));
  if (session.error) transcript.append(el('p', { className: 'error' }, session.error));
  // Its text is the draft's, given as the page is rendered (see keepComposer).
  const draft = el('textarea', { id: 'composer', rows: 2, placeholder: session.running ? 'Steer this turn…' : 'Message Codex…',
    'aria-label': 'Message', dataset: { draft: `composer-${id}` },
    oninput: (event) => state.drafts.set(`composer-${id}`, event.target.value),
    onkeydown: (event) => { if (event.key === 'Enter' && (event.ctrlKey || event.metaKey)) { event.preventDefault(); send(id); } },
    onpaste: (event) => pastedImages(id, event, rerenderKeepingFocus) });
  const images = attachControls(id, rerenderKeepingFocus);
  return el('main', { className: 'screen session' },
    el('div', { className: 'session-head' }, el('h1', { className: 'session-title' }, threadTitle(thread)),
      sessionMenu(id, threadTitle(thread), sessionMenuActions)),
    el('div', { className: 'session-mode' }, modePicker(id)),
    transcript,
    state.notice ? el('p', { className: 'error', id: 'notice' }, state.notice) : null,
    el('div', { className: 'composer' }, images.strip, draft,
      el('div', { className: 'actions' }, ...images.attach, modelPicker(), effortPicker(),
        session.running ? button('Stop', () => stop(id), 'destructive', 'stop') : null,
        button(session.running ? 'Steer' : 'Send', () => send(id), 'prominent', 'send'))));
}

// ---- what the session's menu does once the engine has agreed

const sessionMenuActions = {
  request: (method, params) => link.request(method, params),
  render: () => rerenderKeepingFocus(),
  renamed(threadID, name) {
    const thread = state.threads.find((t) => t.id === threadID);
    if (thread) thread.name = name;
  },
  // A copy keeps the session's permissions: the computer adds them, as it does to every request.
  forkSettings: () => ({}),
  opened(thread) {
    state.threads = [thread, ...state.threads.filter((t) => t.id !== thread.id)];
    show('session', thread.id);
    listSoon();
  },
  archived(threadID, title) {
    forgetThread(threadID);
    state.screen = 'sessions';
    state.archivedNotice = { threadID, title };
  },
};

function forgetThread(threadID) {
  state.threads = state.threads.filter((t) => t.id !== threadID);
  state.sessions.delete(threadID);
  if (state.current === threadID) {
    state.current = null;
    closeSessionMenu();
    if (state.screen === 'session') state.screen = 'sessions';
  }
}

async function unarchive({ threadID }) {
  state.archivedNotice = null;
  try {
    await link.request('thread/unarchive', { threadId: threadID });
  } catch (error) {
    state.listError = `The session could not be brought back: ${error.message}`;
  }
  await readThreads();
}

// Answers and plans read as Markdown; each keeps its view so that a growing one is built once.
const markdownViews = new WeakMap();
const readsAsMarkdown = (entry) => entry.kind === 'assistant' || (entry.kind === 'system' && entry.title === 'Plan');

function markdownNode(entry, streaming) {
  if (!markdownViews.has(entry)) markdownViews.set(entry, new MarkdownView());
  return markdownViews.get(entry).render(entry.text, streaming);
}

function entryNode(entry, session) {
  const streaming = isStreaming(entry, session.running);
  if (readsAsMarkdown(entry) && entry.text)
    return el('article', { className: `entry ${entry.kind}`, dataset: { entry: entry.id } },
      el('h3', {}, entry.title), markdownNode(entry, streaming));
  if (entry.kind === 'changes') {
    entry.openPaths ??= new Set();
    return el('article', { className: 'entry changes-entry', dataset: { entry: entry.id } },
      changesCard(entry.turnId, entry.diff, entry.openPaths));
  }
  const shown = shownText(entry, streaming, entry.showsFullText);
  const node = el('article', { className: `entry ${entry.kind}`, dataset: { entry: entry.id } },
    el('h3', {}, entry.title, entry.status && entry.kind !== 'assistant' ? el('small', {}, ` ${entry.status}`) : null),
    shown.text ? el(entry.kind === 'command' || entry.kind === 'fileChange' ? 'pre' : 'p', { className: shown.muted ? 'body muted' : 'body' }, shown.text) : null);
  if (entry.kind === 'fileChange') node.append(...fileLinks(entry, session));
  if (entry.kind === 'user' && entry.images?.length) node.append(messageImages(entry.images));
  if (shown.shortened || entry.showsFullText)
    node.append(button(entry.showsFullText ? 'Collapse output' : 'Show complete output', () => {
      entry.showsFullText = !entry.showsFullText;
      node.replaceWith(entryNode(entry, session));
    }, 'plain'));
  return node;
}

// A file change's files, each a way to its part of the turn's changes where the turn has some.
function fileLinks(entry, session) {
  const changes = entry.turnId && session.transcript.byID.get(`changes-${entry.turnId}`);
  if (!changes || !entry.paths?.length) return [];
  const inDiff = parseUnifiedDiff(changes.diff).map((file) => file.path);
  return entry.paths.map((path) => diffPathFor(inDiff, path)).filter((path) => path).map((path) =>
    button(`See ${path} in this turn's changes`, () => {
      changes.openPaths ??= new Set();
      changes.openPaths.add(path);
      redrawEntry(state.current, changes);
      const file = document.getElementById(fileAnchor(entry.turnId, path));
      file?.scrollIntoView({ block: 'start' });
      session.following = false;
    }, 'plain file-link'));
}

// A growing answer is drawn at most once a frame, however many deltas the frame brought, just
// before the frame paints: drawn at once, a delta would wait for the same frame and cost the page
// one more layout.
const redrawsDue = new Map();
let framePending = false;
function redrawSoon(threadID, entry) {
  redrawsDue.set(entry, threadID);
  if (framePending) return;
  framePending = true;
  requestAnimationFrame(() => {
    framePending = false;
    const due = [...redrawsDue];
    redrawsDue.clear();
    for (const [held, thread] of due) redrawEntry(thread, held);
  });
}

// An entry that changed while its session is on screen: only its own node is redrawn.
function redrawEntry(threadID, entry) {
  if (state.screen !== 'session' || state.current !== threadID) return;
  const transcript = document.getElementById('transcript');
  if (!transcript) return;
  const session = sessionFor(threadID);
  const fresh = entryNode(entry, session);
  const held = transcript.querySelector(`[data-entry="${CSS.escape(entry.id)}"]`);
  if (held) held.replaceWith(fresh);
  else {
    transcript.querySelector(':scope > p.muted')?.remove();
    transcript.append(fresh);
  }
  scrollTranscriptIfFollowing();
}

function scrollTranscriptIfFollowing(always = false) {
  const transcript = document.getElementById('transcript');
  const session = state.current && state.sessions.get(state.current);
  if (transcript && session && (always || session.following)) transcript.scrollTop = transcript.scrollHeight;
}

// The message stays in the composer, with its images, until Codex has taken it; it carries an id
// of its own, by which the session's history shows whether it went through. The session's mode
// is the computer's to add: the page sends none.
async function send(id) {
  const session = sessionFor(id);
  const key = `composer-${id}`;
  const message = (state.drafts.get(key) || '').trim();
  const images = attachedImages(id);
  if ((!message && !images.length) || session.sending) return;
  const input = [...(message ? [{ type: 'text', text: message }] : []), ...imageInputs(images)];
  const clientUserMessageId = crypto.randomUUID();
  session.sending = true;
  state.notice = '';
  try {
    if (session.running) await runningTurnID(id);
    if (session.running && session.turnID) {
      await link.request('turn/steer', { threadId: id, expectedTurnId: session.turnID, input, clientUserMessageId });
    } else {
      const thread = state.threads.find((t) => t.id === id);
      if (!session.resumed && threadStatus(thread || {}) !== 'idle' && threadStatus(thread || {}) !== 'active')
        await link.request('thread/resume', { threadId: id, excludeTurns: true });
      session.resumed = true;
      session.running = true;
      await link.request('turn/start', { threadId: id, input, clientUserMessageId, summary: 'detailed', ...turnSettings() });
    }
    if ((state.drafts.get(key) || '').trim() === message) state.drafts.delete(key);
    dropImages(id, images);
  } catch (error) {
    // Kept for the user to send again, never sent again by the page: where the connection closed
    // before the computer answered, Codex may have it already.
    session.unconfirmed = error.lost ? { id: clientUserMessageId, images } : null;
    state.notice = error.lost
      ? 'The connection closed before the computer confirmed this message. It is kept below; once reconnected, check the session before sending it again.'
      : error.message;
    session.running = session.running && !!session.turnID;
  }
  session.sending = false;
  rerenderKeepingFocus();
}

async function stop(id) {
  try {
    const turnID = await runningTurnID(id);
    if (!turnID) return rerenderKeepingFocus();
    await link.request('turn/interrupt', { threadId: id, turnId: turnID });
  } catch (error) {
    state.notice = error.message;
    render();
  }
}

// ---- model and thinking effort for the next turn

function turnSettings() {
  return { ...(state.model ? { model: state.model } : {}), ...(state.effort ? { effort: state.effort } : {}) };
}

function modelPicker() {
  const select = el('select', { id: 'model', 'aria-label': 'Model', onchange: (event) => {
    state.model = event.target.value;
    state.effort = '';
    document.getElementById('effort')?.replaceWith(effortPicker());
  } },
    el('option', { value: '' }, 'Default model'));
  for (const model of state.models)
    select.append(el('option', { value: model.id, selected: model.id === state.model }, shown(model.displayName) || shown(model.id)));
  return select;
}

function effortPicker() {
  const model = state.models.find((m) => m.id === state.model) || state.models.find((m) => m.isDefault);
  const efforts = Array.isArray(model?.supportedReasoningEfforts) ? model.supportedReasoningEfforts.map((e) => text(e?.reasoningEffort)).filter((e) => e) : [];
  const select = el('select', { id: 'effort', 'aria-label': 'Thinking effort', onchange: (event) => { state.effort = event.target.value; } },
    el('option', { value: '' }, 'Default effort'));
  for (const effort of efforts) select.append(el('option', { value: effort, selected: effort === state.effort }, effort));
  return select;
}

async function readModels() {
  try {
    const page = await link.request('model/list', { limit: 100, includeHidden: false });
    state.models = Array.isArray(page?.data) ? page.data.filter((m) => m && typeof m.id === 'string') : [];
  } catch {
    state.models = [];
  }
}

// ---- a new session

// The three modes as choices, each with what it allows; the last one chosen is checked.
function modeChoices() {
  return el('fieldset', { className: 'modes', id: 'modes' }, el('legend', {}, 'Permissions'),
    permissionModes.map((mode) => el('label', { className: `option mode-${mode.tint}` },
      el('input', { type: 'radio', name: 'mode', value: mode.key, id: `mode-${mode.key}`, checked: mode.key === state.modeChoice }),
      el('span', { className: 'mode-title' }, mode.title), el('small', {}, mode.summary))));
}

// The session's mode in its header, in its colour, as the computer keeps it for every device; a
// change goes to the computer at once, which tells every device, and applies from the next turn.
function modePicker(id) {
  const key = state.modes.get(id);
  const current = key === 'custom' ? customMode : key ? modeFor(key) : unchosenMode;
  const choices = permissionModes.includes(current) ? permissionModes : [current, ...permissionModes];
  return el('select', { id: 'session-mode', className: `mode mode-${current.tint}`, 'aria-label': 'Permissions',
    title: current.summary, onchange: (event) => chooseMode(id, event.target.value) },
  choices.map((mode) => el('option', { value: mode.key, selected: mode === current, disabled: !permissionModes.includes(mode) }, mode.title)));
}

async function chooseMode(id, key) {
  try {
    await link.request('sarvane/setSessionMode', { threadId: id, mode: key });
    state.modes.set(id, key);
  } catch (error) {
    state.notice = `The permissions could not be changed: ${error.message}`;
  }
  rerenderKeepingFocus();
}

function newSessionScreen() {
  const folder = el('input', { id: 'new-folder', placeholder: 'Folder on the computer, such as /home/you/project', autocomplete: 'off' });
  const task = el('textarea', { id: 'new-task', rows: 4, placeholder: 'What should Codex do?' });
  const form = el('form', { className: 'card', onsubmit: async (event) => {
    event.preventDefault();
    if (!task.value.trim()) return;
    try {
      const chosen = new FormData(event.target).get('mode') || state.modeChoice;
      state.modeChoice = chosen;
      store.write('permissionMode', chosen);
      const body = { ...threadParams(chosen), serviceName: 'sar_vane',
        ...(folder.value.trim() ? { cwd: folder.value.trim() } : {}), ...(state.model ? { model: state.model } : {}) };
      const created = await link.request('thread/start', body);
      const id = created?.thread?.id;
      if (typeof id !== 'string') throw new Error('Codex returned an unexpected response while creating the session.');
      const session = sessionFor(id);
      session.loaded = true;
      session.resumed = true;
      state.modes.set(id, chosen);
      state.threads.unshift(created.thread);
      state.drafts.set(`composer-${id}`, task.value);
      show('session', id);
      await send(id);
    } catch (error) {
      state.notice = error.message;
      render();
    }
  } },
  el('h1', {}, 'New session'),
  el('label', { htmlFor: 'new-folder' }, 'Folder'), folder,
  el('label', { htmlFor: 'new-task' }, 'First task'), task,
  modeChoices(),
  el('div', { className: 'actions' }, modelPicker(), effortPicker(), el('button', { type: 'submit', className: 'prominent', id: 'start-session' }, 'Start')),
  state.notice ? el('p', { className: 'error' }, state.notice) : null);
  return el('main', { className: 'screen' }, form);
}

// ---- usage and limits

function usageScreen() {
  const section = el('section', { className: 'card', id: 'usage-details' }, el('h1', {}, 'Usage & Limits'));
  const limits = state.usage?.rateLimits;
  if (state.usageError) section.append(el('p', { className: 'error' }, state.usageError));
  else if (!limits) section.append(el('p', { className: 'muted' }, 'Loading…'));
  else {
    for (const [key, label] of [['primary', 'Short window'], ['secondary', 'Weekly window']]) {
      const window = limits[key];
      if (!window || typeof window.usedPercent !== 'number') continue;
      const used = Math.max(0, Math.min(100, window.usedPercent));
      const name = typeof window.windowDurationMins === 'number' ? durationName(window.windowDurationMins) : label;
      section.append(el('div', { className: 'limit' },
        el('span', {}, `${name}: ${Math.round(100 - used)}% left`),
        el('meter', { min: 0, max: 100, value: 100 - used, low: 25, optimum: 100 }),
        typeof window.resetsAt === 'number' && window.resetsAt > 0 ? el('small', {}, `Resets ${when(window.resetsAt)}`) : null));
    }
    const credits = limits.credits;
    if (credits?.unlimited) section.append(el('p', {}, 'Credits: unlimited'));
    else if (credits?.balance != null) section.append(el('p', {}, `Credits: ${text(String(credits.balance))}`));
    if (section.childElementCount === 1) section.append(el('p', { className: 'muted' }, 'Allowance percentages aren’t reported for this account.'));
  }
  section.append(button('Refresh', readUsage, 'plain', 'usage-refresh'));
  return el('main', { className: 'screen' }, section);
}

function durationName(minutes) {
  if (minutes % 10080 === 0) return minutes === 10080 ? 'Weekly' : `${minutes / 10080} weeks`;
  if (minutes % 1440 === 0) return minutes === 1440 ? 'Daily' : `${minutes / 1440} days`;
  if (minutes % 60 === 0) return `${minutes / 60} hours`;
  return `${minutes} minutes`;
}

async function readUsage() {
  try {
    state.usage = await link.request('account/rateLimits/read', {});
    state.usageError = '';
  } catch (error) {
    state.usageError = error.message;
  }
  if (state.screen === 'usage') render();
}

// ---- events from the computer

function onMessage({ message }) {
  const { kind, method, id, body } = message;
  const params = body && typeof body === 'object' ? body : {};
  if (kind === 'serverRequest') {
    if (typeof id === 'string' && (method.endsWith('/requestApproval') || method === 'mcpServer/elicitation/request')) {
      state.approvals.set(id, { method, body: params });
      attention.tell(`request:${id}`, requestHeadline(method, params),
        [threadName(params.threadId), requestDetail(method, params)].filter((t) => t).join(': '));
    }
    render();
    return;
  }
  const threadID = typeof params.threadId === 'string' ? params.threadId : null;
  switch (method) {
    case 'sarvane/engineStatus': {
      const wasReady = state.engine.ready;
      state.engine = { ready: params.ready === true, status: text(params.status) };
      if (state.engine.ready && !wasReady) reread();
      else render();
      return;
    }
    case 'sarvane/userInputRequest':
      if (typeof id === 'string') {
        state.questions.set(id, params);
        const first = Array.isArray(params.questions) ? params.questions[0] : null;
        attention.tell(`request:${id}`, 'Codex has a question',
          [threadName(params.threadId), shown(first?.question)].filter((t) => t).join(': '));
      }
      render();
      return;
    case 'sarvane/sessionModes':
      state.modes = new Map(Object.entries(params.modes && typeof params.modes === 'object' ? params.modes : {})
        .filter(([, key]) => typeof key === 'string'));
      render();
      return;
    case 'sarvane/sessionMode':
      if (threadID && typeof params.mode === 'string') state.modes.set(threadID, params.mode);
      else if (threadID) state.modes.delete(threadID);
      if (state.screen === 'session' && state.current === threadID) rerenderKeepingFocus();
      return;
    case 'sarvane/userInputResolved':
    case 'sarvane/serverRequestResolved':
      dropRequest(params.requestId);
      render();
      return;
    case 'thread/started':
    case 'thread/unarchived':
      listSoon();
      return;
    case 'thread/name/updated': {
      const thread = state.threads.find((t) => t.id === threadID);
      if (thread && typeof params.threadName === 'string') thread.name = params.threadName;
      listSoon();
      return;
    }
    case 'thread/archived':
      if (threadID) forgetThread(threadID);
      render();
      return;
    case 'turn/started':
      if (threadID) Object.assign(sessionFor(threadID), { turnID: text(params.turn?.id), running: true });
      setThreadStatus(threadID, 'active');
      render();
      return;
    case 'turn/completed': {
      if (!threadID) return;
      const session = sessionFor(threadID);
      Object.assign(session, { running: false, turnID: null });
      for (const [key, approval] of state.approvals)
        if (approval.body.turnId === params.turn?.id) dropRequest(key);
      if (params.turn?.status === 'failed') session.error = text(params.turn?.error?.message) || 'The turn failed.';
      // What the turn changed shows at its end.
      session.transcript.moveToEnd(`changes-${text(params.turn?.id)}`);
      attention.tell(`turn:${text(params.turn?.id)}`, params.turn?.status === 'failed' ? 'A Codex turn failed' : 'Codex finished a turn',
        threadName(threadID));
      setThreadStatus(threadID, 'idle');
      render();
      return;
    }
    default:
      break;
  }
  if (!threadID || !state.sessions.has(threadID)) return;
  const entry = sessionFor(threadID).transcript.apply(method, params);
  if (method === 'item/completed')
    for (const [key, approval] of state.approvals)
      if (approval.body.itemId === params.item?.id) { dropRequest(key); render(); }
  if (entry && readsAsMarkdown(entry) && method.endsWith('/delta')) redrawSoon(threadID, entry);
  else if (entry) redrawEntry(threadID, entry);
}

function setThreadStatus(threadID, type) {
  const thread = state.threads.find((t) => t.id === threadID);
  if (thread) thread.status = { type };
}

// An approval or question that no longer waits: answered here or elsewhere, or closed by Codex.
function dropRequest(id) {
  state.approvals.delete(id);
  state.questions.delete(id);
  state.drafts.delete(id);
  attention.settle(`request:${id}`);
}

function threadName(threadID) {
  const thread = state.threads.find((t) => t.id === threadID);
  return thread ? threadTitle(thread) : '';
}

// After pairing, after a reconnect, and when the engine becomes ready: read again what is shown.
async function reread() {
  if (link.state !== 'ready') return;
  // The open session keeps what it holds and catches up; the others are read anew when opened.
  // Whether a turn runs, and which, is learnt again: until then no Stop is offered.
  const open = state.screen === 'session' ? state.current : null;
  if (state.engine.ready)
    for (const [id, session] of state.sessions) {
      if (id !== open)
        Object.assign(session, { loaded: false, cursor: null, byItems: true, transcript: new Transcript() });
      Object.assign(session, { running: false, turnID: null });
    }
  render();
  if (!state.engine.ready) return;
  await Promise.all([readThreads(), readModels(), state.screen === 'usage' || state.usage ? readUsage() : null]);
  // A turn that runs on is known by its session's status; its events bring the rest.
  for (const thread of state.threads)
    if (threadStatus(thread) === 'active' && state.sessions.has(thread.id)) sessionFor(thread.id).running = true;
  if (open) await catchUp(open);
  // What waits was offered again before these answers came; a notification of anything else goes.
  attention.settleAllBut(new Set([...state.approvals.keys(), ...state.questions.keys()].map((id) => `request:${id}`)));
  render();
}

// The page's service worker, which keeps its files for opening while the computer is away; where
// the browser allows none (it may refuse one over a certificate it does not trust), the page works
// without. Any other worker of this origin, such as one a look-alike page left, is removed.
async function installWorker() {
  if (!('serviceWorker' in navigator)) return;
  try {
    const own = new URL('sw.js', location.href).href;
    for (const registration of await navigator.serviceWorker.getRegistrations()) {
      const worker = registration.active || registration.waiting || registration.installing;
      if (worker?.scriptURL !== own) await registration.unregister();
    }
    await navigator.serviceWorker.register('sw.js', { scope: './' });
  } catch {
    // Not allowed here.
  }
}

async function main() {
  if (!window.isSecureContext || !crypto.subtle) {
    clear(app).append(el('section', { className: 'card alert' }, el('h1', {}, 'Open this page over https'),
      el('p', {}, 'The browser keeps this device’s key only on a secure page.')));
    return;
  }
  installWorker();
  const identity = await store.identity(crypto);
  const name = (await store.read('name')) || (await askName());
  state.modeChoice = modeFor(await store.read('permissionMode')).key;
  await store.write('name', name);
  await attention.load();
  link = new BridgeLink({ crypto, identity, name, pairedKey: store.pairedKey,
    rememberComputer: store.rememberComputer, host: location.host });
  link.addEventListener('state', () => {
    if (link.state === 'ready') {
      state.everReady = true;
      state.approvals.clear();
      state.questions.clear();
      // The engine's status follows at once; its being ready reads everything again.
      state.engine = { ready: false, status: state.engine.status };
    }
    render();
  });
  link.addEventListener('message', onMessage);
  link.start();
}

main().catch((error) => {
  clear(app).append(el('section', { className: 'card alert' }, el('h1', {}, 'Something went wrong'), el('p', {}, String(error?.message || error))));
});
