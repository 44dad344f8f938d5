// Two more things Codex asks the user, as cards above every screen: more access for a command
// (paths to read or write, the network), and a tool server's request for input, either a form to
// fill in or an address to visit. Everything shown is text; an address opens only on a tap.

import { el, button, shown } from './dom.js';

const text = (value) => (typeof value === 'string' ? value : '');
const maxFields = 64;
const maxOptions = 200;

// Everything a more-access request would grant, one line each: "Network access" first, then
// "Read: <place>", "Write: <place>" and "No access: <place>", a place being a path, a pattern or a
// special place by its name. Null where any of it cannot be read in full (a key, kind or access the
// page does not know, too many lines, too long a path): such a request can only be declined.
export const maxGrantLines = 1000;
export const maxGrantPath = 4096;
export const shownGrantLines = 12;

const isObject = (value) => value !== null && typeof value === 'object' && !Array.isArray(value);
const onlyKeys = (object, keys) => Object.keys(object).every((key) => keys.includes(key));
const present = (value) => value !== undefined && value !== null;

function specialPlace(value) {
  const within = (name) => (text(value?.subpath) ? `${name}, within it ${text(value.subpath)}` : name);
  switch (value?.kind) {
    case 'root': return 'the whole disk';
    case 'minimal': return 'the system files every command needs';
    case 'project_roots': return within('the session’s project folders');
    case 'tmpdir': return 'the temporary folder';
    case 'slash_tmp': return '/tmp';
    case 'unknown': return text(value.path) ? within(text(value.path)) : null;
    default: return null;
  }
}

function entryPlace(path) {
  if (!isObject(path)) return null;
  if (path.type === 'special') return specialPlace(path.value);
  if ((!path.type || path.type === 'path') && text(path.path)) return path.path;
  if ((!path.type || path.type === 'glob_pattern') && text(path.pattern)) return path.pattern;
  return null;
}

export function requestedPermissionLines(params) {
  const lines = [];
  const permissions = params?.permissions;
  if (!present(permissions)) return lines;
  if (!isObject(permissions) || !onlyKeys(permissions, ['fileSystem', 'network'])) return null;
  const network = permissions.network;
  if (present(network)) {
    if (!isObject(network) || !onlyKeys(network, ['enabled'])) return null;
    if (present(network.enabled) && typeof network.enabled !== 'boolean') return null;
    if (network.enabled) lines.push('Network access');
  }
  const fileSystem = permissions.fileSystem;
  if (!present(fileSystem)) return lines;
  if (!isObject(fileSystem) || !onlyKeys(fileSystem, ['read', 'write', 'entries', 'globScanMaxDepth'])) return null;
  const add = (label, place) => {
    if (typeof place !== 'string' || !place || place.length > maxGrantPath || lines.length >= maxGrantLines) return false;
    lines.push(`${label}: ${place}`);
    return true;
  };
  for (const [key, label] of [['read', 'Read'], ['write', 'Write']]) {
    if (!present(fileSystem[key])) continue;
    if (!Array.isArray(fileSystem[key]) || !fileSystem[key].every((path) => add(label, path))) return null;
  }
  if (present(fileSystem.entries)) {
    if (!Array.isArray(fileSystem.entries)) return null;
    for (const entry of fileSystem.entries) {
      const label = { read: 'Read', write: 'Write', deny: 'No access' }[entry?.access];
      if (!label || !add(label, entryPlace(entry?.path))) return null;
    }
  }
  return lines;
}

// The answer that grants what was asked, for this turn or the session, or nothing.
export function permissionsAnswer(params, decision) {
  const grant = decision === 'turn' || decision === 'session';
  return { permissions: grant && params?.permissions && typeof params.permissions === 'object' ? params.permissions : {},
    scope: decision === 'session' ? 'session' : 'turn' };
}

// The fields of a form request, or null where the schema is not a flat object of known fields.
// [{ name, kind: 'text' | 'number' | 'integer' | 'boolean' | 'choice' | 'choices', title, description,
//    required, default, options: [{ value, title }] }]
export function formFields(params) {
  const schema = params?.requestedSchema;
  const properties = schema?.properties;
  if (schema?.type !== 'object' || !properties || typeof properties !== 'object' || Array.isArray(properties)) return null;
  const names = Object.keys(properties);
  if (names.length > maxFields) return null;
  const required = new Set(Array.isArray(schema.required) ? schema.required.filter((name) => typeof name === 'string') : []);
  const fields = [];
  for (const name of names) {
    const field = fieldOf(name, properties[name], required.has(name));
    if (!field) return null;
    fields.push(field);
  }
  return fields;
}

function optionsOf(values, titles) {
  if (!Array.isArray(values) || values.length > maxOptions || !values.every((value) => typeof value === 'string')) return null;
  return values.map((value, index) => ({ value, title: text(titles?.[index]) || value }));
}

function titledOptions(list) {
  if (!Array.isArray(list) || list.length > maxOptions || !list.every((option) => typeof option?.const === 'string')) return null;
  return list.map((option) => ({ value: option.const, title: text(option.title) || option.const }));
}

function fieldOf(name, schema, required) {
  if (!schema || typeof schema !== 'object') return null;
  const field = { name, title: text(schema.title) || name, description: text(schema.description), required,
    default: schema.default, options: [] };
  switch (schema.type) {
    case 'string': {
      const options = schema.enum !== undefined ? optionsOf(schema.enum, schema.enumNames)
        : schema.oneOf !== undefined ? titledOptions(schema.oneOf) : [];
      if (!options) return null;
      return { ...field, kind: options.length ? 'choice' : 'text', options };
    }
    case 'number':
    case 'integer':
    case 'boolean':
      return { ...field, kind: schema.type };
    case 'array': {
      const items = schema.items;
      const options = items?.enum !== undefined ? optionsOf(items.enum) : titledOptions(items?.anyOf);
      return options ? { ...field, kind: 'choices', options } : null;
    }
    default:
      return null;
  }
}

// The form's content from what the user entered (by field name: text, or an array for several
// choices, or a boolean), or the reason it cannot be sent.
export function formContent(fields, values) {
  const content = {};
  for (const field of fields) {
    const given = Object.hasOwn(values, field.name) ? values[field.name] : undefined;
    const blank = given === undefined || given === '' || (Array.isArray(given) && !given.length);
    if (blank) {
      if (field.default !== undefined) content[field.name] = field.default;
      else if (field.required) return { error: `${field.title} is required.` };
      continue;
    }
    if (field.kind === 'number' || field.kind === 'integer') {
      const number = Number(given);
      if (!Number.isFinite(number) || (field.kind === 'integer' && !Number.isInteger(number)))
        return { error: `${field.title} takes ${field.kind === 'integer' ? 'a whole number' : 'a number'}.` };
      content[field.name] = number;
    } else content[field.name] = given;
  }
  return { content };
}

// deps: { answer(id, method, result), done(id), label(threadID) }
export function permissionsCard(id, body, deps) {
  const decide = (decision) => {
    deps.answer(id, 'item/permissions/requestApproval', permissionsAnswer(body, decision));
    deps.done(id);
  };
  const lines = requestedPermissionLines(body);
  const item = (line) => el('li', {}, shown(line));
  // The first lines, then the rest behind "and N more": all of it is on the card, nothing unseen.
  const list = !lines ? el('p', { className: 'error' }, 'This request cannot be shown in full, so it can only be declined.')
    : !lines.length ? el('p', { className: 'muted' }, 'Nothing named')
      : el('div', { className: 'asked' }, el('ul', {}, lines.slice(0, shownGrantLines).map(item)),
        lines.length > shownGrantLines ? el('details', { className: 'more-grants' },
          el('summary', {}, `and ${lines.length - shownGrantLines} more`),
          el('ul', {}, lines.slice(shownGrantLines).map(item))) : null);
  return el('article', { className: 'card request', dataset: { request: id } },
    el('h2', {}, 'Codex asks for more access'), deps.label(body.threadId),
    body.reason ? el('p', {}, shown(body.reason)) : null,
    body.cwd ? el('p', { className: 'muted' }, `for work in ${shown(body.cwd)}`) : null,
    list,
    el('div', { className: 'actions' },
      button('Decline', () => decide('decline'), 'destructive', 'decline'),
      lines ? button('Allow for This Session', () => decide('session'), 'plain', 'accept-session') : null,
      lines ? button('Allow for This Turn', () => decide('turn'), 'prominent', 'accept') : null));
}

// A tool server's request: its form, or its address with "Open" and "Done".
export function elicitationCard(id, body, draft, deps) {
  const method = 'mcpServer/elicitation/request';
  const reply = (result) => {
    deps.answer(id, method, result);
    deps.done(id);
  };
  const server = shown(body.serverName) || 'A tool server';
  const card = el('form', { className: 'card request', dataset: { request: id }, noValidate: true },
    el('h2', {}, body.mode === 'url' ? `${server} asks you to visit an address` : `${server} asks for your input`),
    deps.label(body.threadId), body.message ? el('p', {}, shown(body.message)) : null);
  const refusals = [button('Cancel', () => reply({ action: 'cancel' }), 'plain', 'cancel'),
    button('Decline', () => reply({ action: 'decline' }), 'destructive', 'decline')];
  if (body.mode === 'url') {
    const address = text(body.url);
    const opens = /^https?:\/\//i.test(address);
    card.append(el('p', { className: 'address' }, shown(address)),
      el('div', { className: 'actions' }, ...refusals,
        opens ? el('a', { href: address, target: '_blank', rel: 'noopener noreferrer', className: 'button plain', id: 'open-address' }, 'Open') : null,
        button('Done', () => reply({ action: 'accept' }), 'prominent', 'accept')));
    return card;
  }
  const fields = formFields(body) || [];
  const error = el('p', { className: 'error', hidden: true });
  card.addEventListener('input', () => { error.hidden = true; });
  for (const field of fields) card.append(fieldNode(id, field, draft));
  card.onsubmit = (event) => {
    event.preventDefault();
    const outcome = formContent(fields, draft);
    if (outcome.error) {
      error.textContent = outcome.error;
      error.hidden = false;
      return;
    }
    reply({ action: 'accept', content: outcome.content });
  };
  card.append(error, el('div', { className: 'actions' }, ...refusals,
    el('button', { type: 'submit', className: 'prominent', id: 'accept' }, 'Send')));
  return card;
}

function fieldNode(id, field, draft) {
  const name = `f-${id}-${field.name}`;
  const title = el('legend', {}, shown(field.title), field.required ? el('span', { className: 'required' }, ' (required)') : null);
  const box = el('fieldset', { dataset: { field: field.name } }, title,
    field.description ? el('small', { className: 'muted' }, shown(field.description)) : null);
  const initial = (Object.hasOwn(draft, field.name) ? draft[field.name] : undefined) ?? field.default;
  if (field.kind === 'boolean') {
    // A box left alone says no.
    draft[field.name] = initial === true;
    box.append(el('label', { className: 'option' }, el('input', { type: 'checkbox', name, checked: initial === true,
      onchange: (event) => { draft[field.name] = event.target.checked; } }), el('span', {}, 'Yes')));
  } else if (field.kind === 'choice' || field.kind === 'choices') {
    const several = field.kind === 'choices';
    const chosen = new Set(several ? (Array.isArray(initial) ? initial : []) : [initial]);
    for (const option of field.options)
      box.append(el('label', { className: 'option' }, el('input', { type: several ? 'checkbox' : 'radio', name, value: option.value,
        checked: chosen.has(option.value), onchange: () => {
          draft[field.name] = several ? [...box.querySelectorAll('input:checked')].map((input) => input.value) : option.value;
        } }), el('span', {}, shown(option.title))));
  } else {
    box.append(el('input', { type: field.kind === 'text' ? 'text' : 'number', name, 'aria-label': field.title, autocomplete: 'off',
      value: initial === undefined || initial === null ? '' : String(initial),
      ...(field.kind === 'integer' ? { step: '1' } : { step: 'any' }),
      oninput: (event) => { draft[field.name] = event.target.value; } }));
  }
  return box;
}
