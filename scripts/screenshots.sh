#!/usr/bin/env bash
# Renders the window offscreen in its named states, over the fake engine in a temporary home, and
# writes one PNG per state to the folder given (build/screenshots without one; the states named
# after it alone, where some are); then the browser cockpit at phone size, in headless Chromium
# against the bridge (cockpit-*.png). Uses the optimised tree, which scripts/test.sh builds too.
set -euo pipefail
cd "$(dirname "$0")/.."
out="$(realpath -m "${1:-build/screenshots}")"
scripts/install-deps.sh
scripts/configure-release.sh
cmake --build build/release --target screenshot-tour nimbrel-bridge fake-codex
export QT_QPA_PLATFORM=offscreen
build/release/tests/screenshot-tour "$out" "${@:2}"
NIMBREL_BRIDGE="$PWD/build/release/src/nimbrel-bridge" FAKE_CODEX="$PWD/build/release/tools/fake-codex/fake-codex" \
  COCKPIT_SCENARIO="$PWD/tests/cockpit/scenario.json" COCKPIT_SCREENSHOTS="$out" \
  node --test tests/cockpit/browser.test.mjs >/dev/null
ls "$out"/cockpit-*.png
