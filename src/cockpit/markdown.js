// Codex's answers and plans as Markdown, built as elements from marked's tokens: nothing is ever
// read as markup, nothing loads by itself (an image shows as its text and address), and a link
// opens only when the user taps it, in a new tab, and only for web and mail addresses.
//
// While a message grows, the blocks before its last one are built once and kept; only the growing
// tail is read again on each delta. Once the message settles it is read whole once more, so that a
// list or a link definition split by the streaming comes together, and then never again.

import { Lexer } from './marked.js';
import { el, button } from './dom.js';

const openable = /^(https?:|mailto:)/i;
// The longest unfinished block read again on each delta.
export const plainTailLength = 16000;

// Elements for the Markdown text, as a fragment.
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

// One message's element, kept between redraws. While the message grows, settled blocks are built
// once and stay; only the tail's elements are replaced. A settled message is built once for its text.
export class MarkdownView {
  constructor() {
    this.root = el('div', { className: 'body md' });
    this.reset();
  }

  reset() {
    this.root.replaceChildren();
    this.settledText = '';
    this.tail = [];
    this.lexedLength = 0;
    this.finalText = null;
  }

  render(text, streaming) {
    if (!streaming) {
      if (this.finalText !== text) {
        this.reset();
        this.root.append(markdownFragment(text));
        this.finalText = text;
      }
      return this.root;
    }
    if (this.finalText !== null || !text.startsWith(this.settledText)) this.reset();
    for (const node of this.tail) node.remove();
    let rest = text.slice(this.settledText.length);
    // A single block that keeps growing past the bound (a long list or code block) shows as plain
    // text, and is read again only each time it has grown by a quarter: each delta costs about the
    // same however long the block has grown, and its end is still found.
    if (rest.length > plainTailLength && rest.length < this.lexedLength * 1.25) {
      this.tail = [el('p', { className: 'md-growing' }, rest)];
      this.root.append(...this.tail);
      return this.root;
    }
    this.lexedLength = rest.length;
    let tokens = lex(rest);
    const settled = settledLength(tokens, rest);
    if (settled > 0) {
      let length = 0;
      const kept = [];
      for (const token of tokens) {
        if (length >= settled) break;
        kept.push(token);
        length += token.raw.length;
      }
      this.root.append(...blocks(kept));
      this.settledText += rest.slice(0, settled);
      rest = rest.slice(settled);
      tokens = lex(rest);
      this.lexedLength = rest.length;
    }
    this.tail = rest.length > plainTailLength ? [el('p', { className: 'md-growing' }, rest)] : blocks(tokens);
    this.root.append(...this.tail);
    return this.root;
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
