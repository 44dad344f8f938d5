#!/usr/bin/env bash
# Builds the optimised tree and prints every benchmark's figures as they are measured, the browser
# cockpit's last. Everything runs offscreen, with or without a display; a benchmark that cannot run
# says why, and the others still run. Arguments are passed to each benchmark.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/configure-release.sh
cmake --build build/release --target benchmarks
export QT_QPA_PLATFORM=offscreen
failed=()
run() {
  local name=$1
  shift
  echo "== $name"
  # Line-buffered, so that each figure shows as soon as it is printed, even if stopped early.
  if stdbuf -oL -eL "$@"; then
    return
  else
    local status=$?
    echo "== $name could not run (exit status $status): what it printed above says why"
    failed+=("$name")
  fi
}
for benchmark in build/release/bench/*_bench; do
  run "$(basename "$benchmark")" "$benchmark" "$@"
done
run cockpit_bench node bench/cockpit_bench.mjs build/release
if [ ${#failed[@]} -gt 0 ]; then
  echo "Benchmarks that could not run: ${failed[*]}"
  exit 1
fi
