#!/usr/bin/env bash
# Installs what is missing, builds the application and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/app -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNIMBREL_TESTS=OFF >/dev/null
cmake --build build/app --target nimbrel-bridge nimbrel-peer
exec build/app/src/nimbrel-bridge "$@"
