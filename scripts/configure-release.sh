#!/usr/bin/env bash
# Configures the one optimised tree, build/release, that the run, benchmark, package and screenshot
# scripts share (and the test command builds, so that a build a user makes cannot fail unseen). Its
# benchmarks and screenshot tour are built only when asked for by name.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DNIMBREL_TESTS=OFF \
  -DNIMBREL_BENCH=ON -DNIMBREL_TOUR=ON >/dev/null
