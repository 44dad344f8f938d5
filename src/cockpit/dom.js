// Building the page's elements. Strings become text nodes, so nothing from the computer is ever
// read as markup.

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
