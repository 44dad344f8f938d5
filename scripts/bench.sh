#!/usr/bin/env bash
# Builds an optimised tree and prints every benchmark's figures, the browser cockpit's last.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DNIMBREL_TESTS=OFF -DNIMBREL_BENCH=ON >/dev/null
cmake --build build/bench
for benchmark in build/bench/bench/*_bench; do
  echo "== $(basename "$benchmark")"
  "$benchmark" "$@"
done
echo "== cockpit_bench"
node bench/cockpit_bench.mjs build/bench
