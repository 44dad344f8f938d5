// Codex's answers and plans as Markdown, built as elements from marked's tokens: nothing is ever
// read as markup, nothing loads by itself (an image shows as its text and address), and a link
// opens only when the user taps it, in a new tab, and only for web and mail addresses.
//
// marked reads in a worker (markdown-worker.js), never on the page's own thread, and each reading
// has a time budget: some texts take marked seconds (emphasis markers by the thousand, lists nested
// hundreds deep), and a message whose reading runs over shows as plain text, with "Show formatted".
// A long settled answer is read and shown a part at a time, each part about partBudget characters
// cut where a block begins; the parts after the first are offered by "Show complete answer".
//
// While a message grows, the blocks before its last one are built once and kept; only the growing
// tail is read again, at most one reading at a time, and the words that arrived since its last
// reading show as text after it until the next one comes back. Once the message settles it is read
// again, part by part, so that a list or a link definition split by the streaming comes together.

import { Lexer } from './marked.js';
import { el, button } from './dom.js';

const openable = /^(https?:|mailto:)/i;
// The longest unfinished block read again on each delta.
export const plainTailLength = 8000;
// What shows of such a block while it grows: its newest characters.
const streamingPlainLength = 4000;
// The characters of one part of a settled message.
export const partBudget = 8000;
// How long one reading may take before its text shows plain.
export const parseBudgetMs = 100;

// Elements for the Markdown text, as a fragment (read on this thread: for short, trusted texts).
export function markdownFragment(text) {
  const fragment = document.createDocumentFragment();
  fragment.append(...blocks(lex(text)));
  return fragment;
}

// The top-level tokens of text; marked reads any text, but a fault in it must not lose the message.
export function lex(text) {
  try {
    return new Lexer({ gfm: true }).lex(text);
  } catch {
    return [{ type: 'paragraph', tokens: [{ type: 'text', text }] }];
  }
}

// The length of the part of text whose blocks are finished: up to the start of the last block, or
// 0 while there is one block, or where the tokens do not add up to the text read.
export function settledLength(tokens, text) {
  let last = tokens.length - 1;
  while (last >= 0 && tokens[last].type === 'space') last--;
  let length = 0;
  let whole = 0;
  for (let i = 0; i < tokens.length; i++) {
    if (i < last) length += tokens[i].raw.length;
    whole += tokens[i].raw.length;
  }
  return whole === text.length ? length : 0;
}

const fenceOf = (line) => /^ {0,3}(`{3,}|~{3,})/.exec(line)?.[1] || '';

// Where the parts of text begin, the first at 0: each part holds at most budget characters, cut
// after the last blank line outside a code fence, else after its last line break, else after its
// last space, else at budget (never inside a character). Reads each character about once.
export function answerParts(text, budget = partBudget) {
  const starts = [0];
  let start = 0;
  let fence = '';
  while (text.length - start > budget) {
    // Only the part's own characters are searched.
    const part = text.slice(start, start + budget);
    let blankCut = 0;
    let blankFence = '';
    let lineCut = 0;
    let lineFence = fence;
    for (let at = 0; ;) {
      const end = part.indexOf('\n', at);
      if (end < 0) break;
      const line = part.slice(at, end);
      const marker = fenceOf(line);
      if (fence) {
        if (marker && marker[0] === fence[0] && marker.length >= fence.length && !line.slice(line.indexOf(marker) + marker.length).trim()) fence = '';
      } else if (marker && !(marker[0] === '`' && line.slice(line.indexOf(marker) + marker.length).includes('`'))) fence = marker;
      at = end + 1;
      if (!fence && !line.trim()) {
        blankCut = at;
        blankFence = fence;
      }
      lineCut = at;
      lineFence = fence;
    }
    let cut = blankCut || lineCut;
    fence = blankCut ? blankFence : lineCut ? lineFence : fence;
    if (!cut) {
      const space = part.lastIndexOf(' ');
      cut = space > 0 ? space + 1 : budget;
      const code = part.charCodeAt(cut - 1);
      if (cut === budget && code >= 0xd800 && code <= 0xdbff) cut -= 1;
    }
    start += cut;
    starts.push(start);
  }
  return starts;
}

// Reads Markdown in a worker, one text at a time, each within a time budget: the worker's tokens,
// or null where the reading ran over (the worker is then ended, and the next reading has a new one).
export class MarkdownReader {
  constructor(budgetMs = parseBudgetMs) {
    this.budgetMs = budgetMs;
    this.queue = [];
    this.busy = null;
    this.worker = null;
    this.ready = false;
    this.next = 1;
  }

  read(text) {
    return new Promise((resolve) => {
      this.queue.push({ text, resolve });
      this.pump();
    });
  }

  pump() {
    if (!this.worker) {
      this.ready = false;
      this.worker = new Worker(new URL('./markdown-worker.js', import.meta.url), { type: 'module' });
      this.worker.onmessage = (event) => this.answered(event.data);
      this.worker.onerror = () => this.overrun();
    }
    if (!this.ready || this.busy || !this.queue.length) return;
    const job = this.queue.shift();
    job.id = this.next++;
    this.busy = job;
    // The budget runs from the moment the worker has the text and its parser loaded.
    if (Number.isFinite(this.budgetMs)) job.timer = setTimeout(() => this.overrun(), this.budgetMs);
    this.worker.postMessage({ id: job.id, text: job.text });
  }

  answered(data) {
    if (data?.ready) {
      this.ready = true;
      this.pump();
      return;
    }
    const job = this.busy;
    if (!job || data?.id !== job.id) return;
    clearTimeout(job.timer);
    this.busy = null;
    job.resolve(Array.isArray(data.tokens) ? data.tokens : null);
    this.pump();
  }

  overrun() {
    const job = this.busy;
    this.worker?.terminate();
    this.worker = null;
    this.busy = null;
    if (job) {
      clearTimeout(job.timer);
      job.resolve(null);
    } else {
      // The worker could not start: nothing is read as Markdown.
      for (const waiting of this.queue.splice(0)) waiting.resolve(null);
      return;
    }
    if (this.queue.length) this.pump();
  }
}

// 1,048,576: digits in groups of three (what toLocaleString gives, without loading a locale).
const grouped = (number) => String(number).replace(/\B(?=(\d{3})+$)/g, ',');

let sharedReader = null;
const reader = () => (sharedReader ??= new MarkdownReader());

// One message's element, kept between redraws.
export class MarkdownView {
  constructor(read = (text) => reader().read(text)) {
    this.read = read;
    this.root = el('div', { className: 'body md' });
    this.reset();
  }

  reset() {
    this.root.replaceChildren();
    this.generation = (this.generation || 0) + 1;
    this.text = '';
    this.streaming = false;
    // While streaming: the finished blocks' text and the growing tail's last reading.
    this.settledText = '';
    this.settledNodes = [];
    this.settledSizes = [];
    this.dropped = null;
    this.tailNodes = [];
    this.tailText = '';
    this.tailTokens = [];
    this.reading = false;
    this.plainUntil = 0;
    // Once settled: the parts, the one shown, and whether it is read, plain or waits.
    this.finalText = null;
    this.parts = [0];
    this.part = 0;
    this.paging = false;
    this.partTokens = null;
    this.partPlain = false;
    this.formatting = false;
  }

  render(text, streaming) {
    if (streaming) {
      if (this.finalText !== null || !text.startsWith(this.settledText)) this.reset();
      this.text = text;
      this.streaming = true;
      this.drawTail();
      this.readTail();
      return this.root;
    }
    if (this.finalText !== text) {
      const shownNodes = [...this.root.childNodes];
      const wasStreaming = this.streaming && text.startsWith(this.settledText);
      this.reset();
      this.finalText = text;
      this.text = text;
      this.parts = answerParts(text);
      // What the stream built stays in sight until the settled reading replaces it.
      const keeps = wasStreaming && this.parts.length === 1;
      if (keeps) {
        this.root.append(...shownNodes);
        this.root.dataset.state = 'reading';
      }
      this.readPart(!keeps);
    }
    return this.root;
  }

  // ---- streaming

  drawTail() {
    this.root.dataset.state = 'streaming';
    for (const node of this.tailNodes) node.remove();
    const rest = this.text.slice(this.settledText.length);
    const formatted = this.tailTokens.length && rest.startsWith(this.tailText) && rest.length <= plainTailLength;
    if (!formatted) {
      // A block too long to read on each delta: its newest characters, as text.
      const from = Math.max(0, rest.length - streamingPlainLength);
      this.tailNodes = [el('p', { className: 'md-growing' }, from ? `… ${rest.slice(from)}` : rest)];
      this.root.append(...this.tailNodes);
      return;
    }
    const nodes = blocks(this.tailTokens);
    const newer = rest.slice(this.tailText.length);
    if (newer) {
      // The words since the last reading, as text at the end of the last block until it is read.
      const last = nodes.at(-1);
      const span = el('span', { className: 'md-newer' }, newer);
      if (last && (last.tagName === 'P' || last.tagName === 'LI')) last.append(span);
      else nodes.push(el('p', { className: 'md-growing' }, newer));
    }
    this.tailNodes = nodes;
    this.root.append(...nodes);
  }

  // Finished blocks join those kept; the oldest leave the page once they pass the part budget, as
  // a live answer shows its newest output.
  settle(nodes, text) {
    for (const node of this.tailNodes) node.remove();
    this.tailNodes = [];
    this.root.append(...nodes);
    this.settledNodes.push(...nodes);
    this.settledSizes.push(...nodes.map((node) => node.textContent.length));
    let size = this.settledSizes.reduce((sum, length) => sum + length, 0);
    while (size > partBudget && this.settledNodes.length > 1) {
      this.settledNodes.shift().remove();
      size -= this.settledSizes.shift();
      if (!this.dropped) {
        this.dropped = el('p', { className: 'muted md-dropped' }, '… showing latest live output …');
        this.root.prepend(this.dropped);
      }
    }
    this.settledText += text;
  }

  async readTail() {
    if (this.reading) return;
    const rest = this.text.slice(this.settledText.length);
    // A single block that keeps growing past the bound (a long list or code block) shows as plain
    // text, and is read again only each time it has grown by a quarter.
    if (rest === this.tailText || rest.length > plainTailLength || rest.length < this.plainUntil) return;
    const generation = this.generation;
    this.reading = true;
    const tokens = await this.read(rest);
    if (generation !== this.generation) return;
    this.reading = false;
    if (!tokens) {
      this.plainUntil = rest.length * 1.25;
      this.tailTokens = [];
      this.tailText = '';
    } else {
      const settled = settledLength(tokens, rest);
      let kept = 0;
      for (let length = 0; kept < tokens.length && length < settled; kept++) length += tokens[kept].raw.length;
      this.settle(blocks(tokens.slice(0, kept)), rest.slice(0, settled));
      this.tailTokens = tokens.slice(kept);
      this.tailText = rest.slice(settled);
      this.plainUntil = 0;
    }
    if (this.streaming && this.finalText === null) {
      this.drawTail();
      this.readTail();
    }
  }

  // ---- settled, a part at a time

  partText() {
    return this.text.slice(this.parts[this.part], this.parts[this.part + 1] ?? this.text.length);
  }

  async readPart(drawPlainFirst = true) {
    const generation = ++this.generation;
    this.partTokens = null;
    this.partPlain = false;
    if (drawPlainFirst) this.drawPart(true);
    // "Show formatted" reads with no time budget, in a worker of its own.
    const tokens = await (this.formatting ? this.unbounded().read(this.partText()) : this.read(this.partText()));
    if (generation !== this.generation) return;
    this.partTokens = tokens;
    this.partPlain = !tokens;
    this.drawPart(false);
  }

  unbounded() {
    return (this.unboundedReader ??= new MarkdownReader(Infinity));
  }

  drawPart(waiting) {
    const text = this.partText();
    const nodes = this.partTokens ? blocks(this.partTokens)
      : [el('p', { className: waiting ? 'md-growing md-waiting' : 'md-growing md-plain' }, text)];
    if (this.partPlain)
      nodes.push(button('Show formatted', () => {
        this.formatting = true;
        this.readPart(false);
      }, 'plain md-format'));
    if (this.parts.length > 1) nodes.push(this.partControls());
    this.root.replaceChildren(...nodes);
    // For whoever watches: being read, read as Markdown, or shown plain.
    this.root.dataset.state = this.partTokens ? 'read' : waiting ? 'reading' : 'plain';
  }

  partControls() {
    const go = (part, paging = true) => () => {
      this.part = part;
      this.paging = paging;
      this.formatting = false;
      this.readPart();
    };
    const count = this.parts.length;
    if (!this.paging)
      return el('div', { className: 'md-parts' },
        el('p', { className: 'muted' }, `Showing the first ${grouped(this.parts[1])} of ${grouped(this.text.length)} characters.`),
        button('Show complete answer', go(1), 'plain md-more'));
    return el('div', { className: 'md-parts' },
      el('p', { className: 'muted' }, `Part ${this.part + 1} of ${count}`),
      this.part > 0 ? button('Previous part', go(this.part - 1), 'plain md-previous') : null,
      this.part < count - 1 ? button('Next part', go(this.part + 1), 'plain md-next') : null,
      button('Collapse answer', go(0, false), 'plain md-collapse'));
  }
}

function blocks(tokens) {
  const nodes = [];
  for (const token of tokens) {
    const node = block(token);
    if (node) nodes.push(node);
  }
  return nodes;
}

function block(token) {
  switch (token.type) {
    case 'heading':
      return el(`h${Math.min(6, Math.max(1, token.depth) + 2)}`, { className: 'md-heading' }, inline(token.tokens));
    case 'paragraph':
      return el('p', {}, inline(token.tokens));
    case 'text':
      return el('p', {}, token.tokens ? inline(token.tokens) : token.text);
    case 'blockquote':
      return el('blockquote', {}, blocks(token.tokens || []));
    case 'list': {
      const list = el(token.ordered ? 'ol' : 'ul', {});
      if (token.ordered && Number.isInteger(Number(token.start)) && Number(token.start) !== 1) list.start = Number(token.start);
      for (const item of token.items || []) list.append(listItem(item, token.loose));
      return list;
    }
    case 'table':
      return table(token);
    case 'code':
      return codeBlock(token.text, token.lang);
    case 'hr':
      return el('hr', {});
    case 'html':
      // Raw HTML is shown as what it is: text.
      return el('pre', { className: 'md-raw' }, token.raw || token.text);
    case 'space':
    case 'def':
      return null;
    default:
      return token.raw ? el('p', {}, token.raw) : null;
  }
}

function listItem(item, loose) {
  const li = el('li', {});
  if (item.task) li.append(el('span', { className: 'md-task', 'aria-hidden': 'true' }, item.checked ? '☑ ' : '☐ '));
  for (const token of item.tokens || []) {
    if (token.type === 'checkbox') continue;
    // A tight list's text sits in the item itself, not in a paragraph of its own.
    if (token.type === 'text' && !loose) li.append(...inline(token.tokens || [{ type: 'text', text: token.text }]));
    else {
      const node = block(token);
      if (node) li.append(node);
    }
  }
  return li;
}

function table(token) {
  const alignOf = (cell) => (cell.align === 'left' || cell.align === 'right' || cell.align === 'center' ? cell.align : '');
  const row = (cells, tag) => el('tr', {}, cells.map((cell) => {
    const node = el(tag, {}, inline(cell.tokens || []));
    if (alignOf(cell)) node.style.textAlign = alignOf(cell);
    return node;
  }));
  return el('div', { className: 'md-table' }, el('table', {},
    el('thead', {}, row(token.header || [], 'th')),
    el('tbody', {}, (token.rows || []).map((cells) => row(cells, 'td')))));
}

function codeBlock(text, language) {
  const box = el('div', { className: 'code-block' },
    language ? el('span', { className: 'code-language' }, language.split(/\s/)[0]) : null,
    button('Copy', () => copyCode(box), 'plain copy'),
    el('pre', {}, el('code', {}, text)));
  return box;
}

async function copyCode(box) {
  const copy = box.querySelector('button.copy');
  const code = box.querySelector('code');
  try {
    await navigator.clipboard.writeText(code.textContent);
    copy.textContent = 'Copied';
  } catch {
    copy.textContent = 'Copy failed';
  }
  setTimeout(() => { copy.textContent = 'Copy'; }, 1500);
}

function inline(tokens) {
  const nodes = [];
  for (const token of tokens || []) {
    switch (token.type) {
      case 'text':
        nodes.push(...(token.tokens ? inline(token.tokens) : [document.createTextNode(token.text)]));
        break;
      case 'escape':
        nodes.push(document.createTextNode(token.text));
        break;
      case 'strong':
      case 'em':
      case 'del':
        nodes.push(el(token.type === 'del' ? 's' : token.type, {}, inline(token.tokens)));
        break;
      case 'codespan':
        nodes.push(el('code', {}, token.text));
        break;
      case 'br':
        nodes.push(el('br', {}));
        break;
      case 'link':
        nodes.push(link(token));
        break;
      case 'image':
        // Never fetched: its description and where it would come from.
        nodes.push(el('span', { className: 'md-image' }, `[image: ${token.text || 'no description'}] `,
          el('span', { className: 'md-address' }, token.href || '')));
        break;
      case 'html':
        nodes.push(document.createTextNode(token.raw || token.text));
        break;
      default:
        nodes.push(document.createTextNode(token.raw || token.text || ''));
    }
  }
  return nodes;
}

function link(token) {
  const label = inline(token.tokens);
  const href = typeof token.href === 'string' ? token.href.trim() : '';
  const labelText = label.map((node) => node.textContent).join('');
  const address = labelText === href ? null : el('span', { className: 'md-address' }, ` (${href})`);
  if (!openable.test(href)) return el('span', { className: 'md-inert-link' }, label, address);
  return el('a', { href, target: '_blank', rel: 'noopener noreferrer nofollow', referrerPolicy: 'no-referrer' }, label, address);
}
