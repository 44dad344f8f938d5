#!/usr/bin/env bash
# Renders the window offscreen in its named states, over the fake engine in a temporary home, and
# writes one PNG per state to the folder given (build/screenshots without one; the states named
# after it alone, where some are); then the browser
# cockpit at phone size, in headless Chromium against the bridge (cockpit-*.png). Uses the test tree,
# which scripts/test.sh builds too.
set -euo pipefail
cd "$(dirname "$0")/.."
out="$(realpath -m "${1:-build/screenshots}")"
scripts/install-deps.sh
cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DNIMBREL_SANITIZE=ON >/dev/null
cmake --build build/test --target screenshot-tour nimbrel-bridge fake-codex
export LSAN_OPTIONS="suppressions=$PWD/tests/lsan-qt-quick.supp:fast_unwind_on_malloc=0"
build/test/tests/screenshot-tour "$out" "${@:2}"
NIMBREL_BRIDGE="$PWD/build/test/src/nimbrel-bridge" FAKE_CODEX="$PWD/build/test/tools/fake-codex/fake-codex" \
  COCKPIT_SCENARIO="$PWD/tests/cockpit/scenario.json" COCKPIT_SCREENSHOTS="$out" \
  node --test tests/cockpit/browser.test.mjs >/dev/null
ls "$out"/cockpit-*.png
