// Building the page's elements. Strings become text nodes, so nothing from the computer is ever
// read as markup.

const hidden = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u2028\u2029\u202a-\u202e\u2066-\u2069]/g;

// Text from outside as the page shows an approval, a question or a name: control characters,
// separators and the bidirectional controls that would make it read in another order than it runs
// appear as escapes (\r, \u202E), as the computer's own views show them; line feeds and tabs stay.
// Anything but a string shows as nothing.
export function shown(value) {
  if (typeof value !== 'string') return '';
  return value.replace(hidden, (c) => (c === '\r' ? '\\r'
    : `\\u${c.charCodeAt(0).toString(16).toUpperCase().padStart(4, '0')}`));
}

export function el(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [key, value] of Object.entries(properties)) {
    if (key === 'dataset') Object.assign(element.dataset, value);
    else if (key.includes('-')) element.setAttribute(key, value);
    else element[key] = value;
  }
  for (const child of children.flat())
    if (child !== null && child !== undefined && child !== false)
      element.append(typeof child === 'string' ? document.createTextNode(child) : child);
  return element;
}

export function clear(element) {
  element.replaceChildren();
  return element;
}

export function button(label, action, style = 'plain', id = undefined) {
  return el('button', { type: 'button', className: style, onclick: action, ...(id ? { id } : {}) }, label);
}

// Gives `container` the elements of `next` (a detached element holding the new contents), except
// that `kept`, already in `container`, stays where `next` holds `slot`, attached all along: a long
// text being written is not laid out again. Each element between them is kept as well, taking the
// new one's class and id. False, and nothing changed, where the two are not built alike.
export function replaceKeeping(container, next, kept, slot) {
  const lineage = (node, top) => {
    const line = [];
    for (; node && node !== top; node = node.parentNode) line.unshift(node);
    return node === top ? line : null;
  };
  const keptLine = lineage(kept, container);
  const slotLine = lineage(slot, next);
  if (!keptLine || !slotLine || keptLine.length !== slotLine.length ||
      keptLine.some((node, i) => node.tagName !== slotLine[i].tagName)) return false;
  let into = container;
  let from = next;
  keptLine.forEach((stay, i) => {
    const fresh = slotLine[i];
    for (const child of [...into.childNodes]) if (child !== stay) child.remove();
    const children = [...from.childNodes];
    const at = children.indexOf(fresh);
    stay.before(...children.slice(0, at));
    stay.after(...children.slice(at + 1));
    if (stay !== kept) {
      stay.className = fresh.className;
      if (fresh.id) stay.id = fresh.id;
      else stay.removeAttribute('id');
    }
    into = stay;
    from = fresh;
  });
  return true;
}
