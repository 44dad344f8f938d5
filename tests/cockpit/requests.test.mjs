// What the page reads out of a request for more access and out of a tool server's form.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { formContent, formFields, permissionsAnswer, requestedPermissionLines } from '../../src/cockpit/requests.js';

const manyPaths = Array.from({ length: 60 }, (_, i) => `/srv/data/${i}`);
const longPath = `/home/ada/${'x'.repeat(1990)}`;

test('more access: every grant shown, special places by name and network first, or nothing where any of it is unreadable', () => {
  const cases = [
    [{ permissions: { fileSystem: { read: ['/etc/app'], write: ['/var/cache/app'],
      entries: [{ path: { type: 'path', path: '/srv/data' }, access: 'write' }, { path: { type: 'glob_pattern', pattern: '**/*.log' }, access: 'deny' }] },
    network: { enabled: true } } },
    ['Network access', 'Read: /etc/app', 'Write: /var/cache/app', 'Write: /srv/data', 'No access: **/*.log']],
    [{ permissions: { fileSystem: { entries: [
      { path: { type: 'special', value: { kind: 'root' } }, access: 'write' },
      { path: { type: 'special', value: { kind: 'project_roots', subpath: 'docs' } }, access: 'read' },
      { path: { type: 'special', value: { kind: 'tmpdir' } }, access: 'write' },
      { path: { type: 'special', value: { kind: 'unknown', path: '/opt/tool' } }, access: 'read' }] } } },
    ['Write: the whole disk', 'Read: the session’s project folders, within it docs', 'Write: the temporary folder', 'Read: /opt/tool']],
    [{ permissions: { fileSystem: { write: manyPaths }, network: { enabled: true } } }, ['Network access', ...manyPaths.map((p) => `Write: ${p}`)]],
    [{ permissions: { fileSystem: { read: [longPath] } } }, [`Read: ${longPath}`]],
    [{}, []],
    [{ permissions: null }, []],
    // What the page cannot read in full, it cannot let anyone grant.
    [{ permissions: 'all' }, null],
    [{ permissions: { network: { enabled: 'yes' } } }, null],
    [{ permissions: { fileSystem: { write: ['/var/cache/app', 7] } } }, null],
    [{ permissions: { fileSystem: { entries: [{ path: { type: 'special', value: { kind: 'everything' } }, access: 'write' }] } } }, null],
    [{ permissions: { fileSystem: { entries: [{ path: { path: '/srv' }, access: 'none' }] } } }, null],
    [{ permissions: { fileSystem: { read: [] }, macOS: { all: true } } }, null],
    [{ permissions: { fileSystem: { read: [`/${'y'.repeat(5000)}`] } } }, null],
    [{ permissions: { fileSystem: { read: Array.from({ length: 1001 }, (_, i) => `/p${i}`) } } }, null],
  ];
  for (const [params, expected] of cases)
    assert.deepEqual(requestedPermissionLines(params), expected, JSON.stringify(params).slice(0, 120));
  const params = cases[0][0];
  assert.deepEqual(permissionsAnswer(params, 'session'), { permissions: params.permissions, scope: 'session' });
  assert.deepEqual(permissionsAnswer(params, 'turn').scope, 'turn');
  assert.deepEqual(permissionsAnswer(params, 'decline'), { permissions: {}, scope: 'turn' });
});

test('a form: its fields, or nothing where the schema is not one the page can fill in', () => {
  const schema = { type: 'object', required: ['title', 'count'], properties: {
    title: { type: 'string', title: 'Title' }, count: { type: 'integer' }, urgent: { type: 'boolean', default: false },
    team: { type: 'string', enum: ['web', 'app'], enumNames: ['Web', 'App'] },
    tags: { type: 'array', items: { anyOf: [{ const: 'bug', title: 'Bug' }, { const: 'ux' }] } } } };
  const fields = formFields({ requestedSchema: schema });
  assert.deepEqual(fields.map((f) => [f.name, f.kind, f.title, f.required]),
    [['title', 'text', 'Title', true], ['count', 'integer', 'count', true], ['urgent', 'boolean', 'urgent', false],
      ['team', 'choice', 'team', false], ['tags', 'choices', 'tags', false]]);
  assert.deepEqual(fields[4].options, [{ value: 'bug', title: 'Bug' }, { value: 'ux', title: 'ux' }]);
  const cases = [
    [{ title: 'Broken', count: '3' }, { content: { title: 'Broken', count: 3, urgent: false } }],
    [{ title: 'Broken', count: '2.5' }, { error: 'count takes a whole number.' }],
    [{ count: '1' }, { error: 'Title is required.' }],
    [{ title: 'x', count: '1', urgent: true, team: 'app', tags: ['bug'] }, { content: { title: 'x', count: 1, urgent: true, team: 'app', tags: ['bug'] } }],
    [{ title: 'x', count: '1', constructor: 'y' }, { content: { title: 'x', count: 1, urgent: false } }],
  ];
  for (const [values, expected] of cases) assert.deepEqual(formContent(fields, values), expected, JSON.stringify(values));
  // A choice is sent by its value, exactly, commas and all.
  const commas = formFields({ requestedSchema: { type: 'object', properties: {
    pick: { type: 'string', enum: ['a, b', 'c'] }, many: { type: 'array', items: { enum: ['a, b', 'c'] } } } } });
  assert.deepEqual(formContent(commas, { pick: 'a, b', many: ['a, b', 'c'] }), { content: { pick: 'a, b', many: ['a, b', 'c'] } });
  // Names a plain object holds already are the server's fields like any other.
  const inherited = formFields({ requestedSchema: { type: 'object', required: ['constructor'], properties: { constructor: { type: 'string' } } } });
  assert.deepEqual(formContent(inherited, Object.create(null)), { error: 'constructor is required.' });
  const broken = [undefined, { type: 'array' }, { type: 'object', properties: [] },
    { type: 'object', properties: { a: { type: 'object' } } }, { type: 'object', properties: { a: { type: 'string', enum: [1] } } },
    { type: 'object', properties: Object.fromEntries(Array.from({ length: 65 }, (_, i) => [`f${i}`, { type: 'string' }])) }];
  for (const requestedSchema of broken) assert.equal(formFields({ requestedSchema }), null, JSON.stringify(requestedSchema)?.slice(0, 80));
});
