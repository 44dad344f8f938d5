#!/usr/bin/env bash
# Installs the browser tools' npm packages exactly as package-lock.json pins them, when node_modules
# is missing or the lock file changed since the last install (a copy of the lock installed stays in
# node_modules). No browser is downloaded: the tools drive Debian's chromium.
set -euo pipefail
cd "$(dirname "$0")"
cmp -s package-lock.json node_modules/.installed-lock && exit 0
if ! command -v npm >/dev/null; then
  echo "npm is missing: install Node.js with npm (Node.js 20 or later) to run the browser tests" >&2
  exit 1
fi
echo "Installing the browser tools' npm packages"
PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund --loglevel=error
cp package-lock.json node_modules/.installed-lock
