// How the page shows a session: engine items as transcript entries, live deltas, and long output
// shortened as the desktop window shortens it. Everything here is plain data; the page renders it
// as text, never as markup.

export const streamingOutputLimit = 2000;
export const settledOutputLimit = 4000;
const settledOutputHead = 3000;
const settledOutputTail = 1000;

const text = (value) => (typeof value === 'string' ? value : '');
const joinNonEmpty = (parts, separator) => parts.filter((part) => part).join(separator);

function assistantTitle(phase) {
  if (phase === 'commentary') return 'Codex update';
  if (phase === 'final_answer') return 'Final response';
  return 'Codex';
}

function listText(list, read) {
  return Array.isArray(list) ? list.map(read).filter((part) => part).join('\n\n') : '';
}

// One entry {id, kind, title, text, status} for an engine item, or null for an item not shown.
export function entryFromItem(item) {
  if (!item || typeof item !== 'object' || typeof item.type !== 'string') return null;
  const entry = { id: text(item.id) || crypto.randomUUID(), kind: 'system', title: '', text: '',
    status: typeof item.status === 'string' ? item.status : null };
  switch (item.type) {
    case 'userMessage':
      return { ...entry, kind: 'user', title: 'You', clientId: text(item.clientId),
        text: Array.isArray(item.content) ? item.content.map((part) => text(part?.text)).filter((t) => t).join('\n') : '',
        images: Array.isArray(item.content) ? item.content.filter((part) => part?.type === 'image' || part?.type === 'localImage')
          .map((part) => ({ url: text(part.url), path: text(part.path) })) : [] };
    case 'agentMessage':
      return { ...entry, kind: 'assistant', title: assistantTitle(item.phase), text: text(item.text) };
    case 'commandExecution':
      return { ...entry, kind: 'command', title: `$ ${text(item.command) || 'Command'}`, text: text(item.aggregatedOutput) };
    case 'fileChange':
      return { ...entry, kind: 'fileChange', title: 'File changes',
        paths: Array.isArray(item.changes) ? item.changes.map((change) => text(change?.path)).filter((path) => path) : [],
        text: listText(item.changes, (change) => joinNonEmpty([text(change?.path), text(change?.diff)], '\n')) };
    case 'reasoning':
      return { ...entry, kind: 'reasoning', title: 'Thinking summary', status: null,
        text: listText(item.summary, (part) => (typeof part === 'string' ? part : text(part?.text))) };
    case 'plan':
      return { ...entry, kind: 'system', title: 'Plan', text: text(item.text) };
    case 'mcpToolCall':
      return { ...entry, kind: 'command', title: `${text(item.server) || 'MCP'} • ${text(item.tool) || 'tool'}` };
    case 'dynamicToolCall':
      return { ...entry, kind: 'command', title: text(item.tool) || 'Codex tool' };
    case 'webSearch':
      return { ...entry, kind: 'command', title: 'Web search', text: text(item.query) };
    case 'contextCompaction':
      return { ...entry, title: 'Compacting conversation', text: 'Codex is condensing earlier context for the next steps.' };
    default:
      return null;
  }
}

// The text to show for an entry's body: whole, or shortened where it is long.
export function shownText(entry, streaming, showsFullText = false) {
  const body = entry.text;
  if (!body) {
    if (entry.kind !== 'reasoning') return { text: '', muted: false, shortened: false };
    return { text: streaming ? 'Waiting for a thinking summary…' : 'No summary text is available for this step.',
      muted: true, shortened: false };
  }
  const characters = Array.from(body);
  const limit = streaming ? streamingOutputLimit : settledOutputLimit;
  if (showsFullText || characters.length <= limit) return { text: body, muted: false, shortened: false };
  if (streaming)
    return { text: `… showing latest live output …\n\n${characters.slice(-streamingOutputLimit).join('')}`,
      muted: false, shortened: true };
  return { text: `${characters.slice(0, settledOutputHead).join('')}\n\n… output shortened to keep this conversation responsive …\n\n${characters.slice(-settledOutputTail).join('')}`,
    muted: false, shortened: true };
}

const streamingStatuses = new Set(['running', 'thinking', 'inProgress', 'updating']);
export const isStreaming = (entry, turnRunning) => turnRunning && streamingStatuses.has(entry.status);

// A session's transcript: entries in order by id, updated by the engine's live events.
export class Transcript {
  constructor() {
    this.entries = [];
    this.byID = new Map();
  }

  put(entry, atStart = false) {
    const held = this.byID.get(entry.id);
    if (held) {
      // A completed item replaces what its deltas built; an item that completes with no text keeps them.
      Object.assign(held, entry, { text: entry.text || held.text });
      return held;
    }
    this.byID.set(entry.id, entry);
    if (atStart) this.entries.unshift(entry);
    else this.entries.push(entry);
    return entry;
  }

  // Moves an entry to the end, as a turn's changes go once the turn ends; true where it moved.
  moveToEnd(id) {
    const entry = this.byID.get(id);
    const at = entry ? this.entries.indexOf(entry) : -1;
    if (at < 0 || at === this.entries.length - 1) return false;
    this.entries.splice(at, 1);
    this.entries.push(entry);
    return true;
  }

  // Earlier entries from a history page, oldest first, put before what is shown.
  prepend(entries) {
    for (const entry of [...entries].reverse()) if (!this.byID.has(entry.id)) this.put(entry, true);
  }

  // The newest page of history read again, oldest first, merged with what is held: an entry held
  // takes the page's version (what its deltas built while the page listened is in it), an entry
  // new here goes beside its neighbours on the page. Returns false, changing nothing, where the
  // page and what is held have no entry in common (more happened than one page holds).
  mergeNewest(entries) {
    if (this.entries.length && !entries.some((entry) => this.byID.has(entry.id))) return false;
    let previous = null;
    entries.forEach((entry, index) => {
      if (this.byID.has(entry.id)) {
        previous = this.put(entry);
        return;
      }
      const next = previous ? null : entries.slice(index + 1).find((later) => this.byID.has(later.id));
      const at = previous ? this.entries.indexOf(previous) + 1
        : next ? this.entries.indexOf(this.byID.get(next.id)) : this.entries.length;
      this.byID.set(entry.id, entry);
      this.entries.splice(at, 0, entry);
      previous = entry;
    });
    return true;
  }

  append(itemID, kind, title, delta) {
    const entry = this.byID.get(itemID) || this.put({ id: itemID, kind, title, text: '', status: 'inProgress' });
    entry.text += delta;
    return entry;
  }

  // One live event of this session; returns the entry it changed, if any.
  apply(method, params) {
    const item = params.item;
    switch (method) {
      case 'item/started':
      case 'item/completed': {
        const entry = entryFromItem(item);
        if (!entry) return null;
        if (method === 'item/started' && entry.kind === 'assistant' && !entry.status) entry.status = 'inProgress';
        if (method === 'item/completed' && entry.status === 'inProgress') entry.status = 'completed';
        if (method === 'item/completed' && (entry.kind === 'assistant' || entry.kind === 'reasoning')) entry.status = 'completed';
        if (typeof params.turnId === 'string') entry.turnId = params.turnId;
        return this.put(entry);
      }
      case 'turn/diff/updated':
        // The newest diff of the whole turn: one card per turn, kept up to date.
        if (typeof params.turnId !== 'string' || typeof params.diff !== 'string') return null;
        return this.put({ id: `changes-${params.turnId}`, kind: 'changes', title: 'Changes', text: '', status: null,
          turnId: params.turnId, diff: params.diff });
      case 'item/agentMessage/delta':
        return this.append(text(params.itemId), 'assistant', 'Codex', text(params.delta));
      case 'item/commandExecution/outputDelta':
        return this.append(text(params.itemId), 'command', 'Command output', text(params.delta));
      case 'item/reasoning/summaryTextDelta': {
        // Each summary part is a paragraph of its own.
        const held = this.byID.get(text(params.itemId));
        const part = typeof params.summaryIndex === 'number' ? params.summaryIndex : 0;
        const separator = held && held.text && held.summaryIndex !== part ? '\n\n' : '';
        const entry = this.append(text(params.itemId), 'reasoning', 'Thinking summary', separator + text(params.delta));
        entry.summaryIndex = part;
        return entry;
      }
      case 'item/plan/delta':
        return this.append(text(params.itemId), 'system', 'Plan', text(params.delta));
      default:
        return null;
    }
  }
}

// The entries of one history page, oldest first, from thread/items/list (data: {item} objects) or
// thread/turns/list (data: turns, each with its items).
export function entriesFromPage(page, byItems) {
  const data = Array.isArray(page?.data) ? page.data : [];
  // Pages run newest first; within a turn items are in their order.
  if (byItems) return data.map((element) => entryFromItem(element?.item)).filter((entry) => entry).reverse();
  return data.slice().reverse().flatMap((turn) => (Array.isArray(turn?.items) ? turn.items : [])
    .map(entryFromItem).filter((entry) => entry));
}
