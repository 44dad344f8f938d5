// How much a session may do without asking, as the page offers it: the same three modes as the
// computer's window, with the approval policy and sandbox each sends to Codex.

export const permissionModes = [
  { key: 'full-access', title: 'Full access', tint: 'orange', approvalPolicy: 'never', sandbox: 'danger-full-access',
    summary: 'Runs commands and changes files anywhere on the computer, with network access, and never asks.' },
  { key: 'ask', title: 'Ask before acting', tint: 'green', approvalPolicy: 'untrusted', sandbox: 'workspace-write',
    summary: 'Works in the session’s folder and asks you before running a command that could change something and before changing files.' },
  { key: 'read-only', title: 'Read only', tint: 'cyan', approvalPolicy: 'on-request', sandbox: 'read-only',
    summary: 'Reads files and runs harmless commands; asks you for anything else.' },
];

// What a session shows whose approval policy and sandbox Codex reports as none of the three, and
// one nobody has chosen a mode for yet; neither can be chosen.
export const customMode = { key: 'custom', title: 'Custom', tint: 'gray',
  summary: 'Codex runs this session with approval and sandbox settings that are none of these three. Choose one to change them.' };
export const unchosenMode = { key: '', title: 'Not chosen yet', tint: 'gray',
  summary: 'Nobody has chosen permissions for this session. Its next turn runs as Codex has it set, and this then shows which mode that is.' };

// The page's own default for new sessions, for a phone away from the computer: Codex asks first.
export const defaultModeKey = 'ask';

export const modeFor = (key) => permissionModes.find((mode) => mode.key === key) || modeFor(defaultModeKey);

// The mode whose policy and sandbox these are, as thread/start and thread/resume answer them; null
// for any other pair (a granular policy, say).
export function modeOf(approvalPolicy, sandbox) {
  const sandboxName = typeof sandbox === 'string' ? sandbox : sandboxModeOfPolicy(sandbox);
  return permissionModes.find((mode) => mode.approvalPolicy === approvalPolicy && mode.sandbox === sandboxName)?.key ?? null;
}

function sandboxModeOfPolicy(policy) {
  return { dangerFullAccess: 'danger-full-access', workspaceWrite: 'workspace-write', readOnly: 'read-only' }[policy?.type] ?? null;
}

// The params a mode adds to thread/start and thread/resume, and to turn/start.
export const threadParams = (key) => ({ approvalPolicy: modeFor(key).approvalPolicy, sandbox: modeFor(key).sandbox });
export function turnParams(key) {
  const mode = modeFor(key);
  const type = { 'danger-full-access': 'dangerFullAccess', 'workspace-write': 'workspaceWrite', 'read-only': 'readOnly' }[mode.sandbox];
  return { approvalPolicy: mode.approvalPolicy, sandboxPolicy: { type } };
}
