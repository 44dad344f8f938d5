// The permission modes and what each sends to Codex.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { modeOf, threadParams, turnParams } from '../../src/cockpit/modes.js';

test('each mode sends its policy and sandbox, and is known again from what Codex answers', () => {
  const cases = [
    ['full-access', 'never', 'danger-full-access', 'dangerFullAccess'],
    ['ask', 'untrusted', 'workspace-write', 'workspaceWrite'],
    ['read-only', 'on-request', 'read-only', 'readOnly'],
  ];
  for (const [key, approvalPolicy, sandbox, type] of cases) {
    assert.deepEqual(threadParams(key), { approvalPolicy, sandbox });
    assert.deepEqual(turnParams(key), { approvalPolicy, sandboxPolicy: { type } });
    assert.equal(modeOf(approvalPolicy, sandbox), key);
    assert.equal(modeOf(approvalPolicy, { type, networkAccess: false }), key);
  }
  assert.deepEqual(threadParams('no such mode'), threadParams('ask'));
  assert.equal(modeOf('on-failure', 'workspace-write'), null);
  assert.equal(modeOf({ granular: {} }, 'read-only'), null);
});
