#!/usr/bin/env bash
# Installs what is missing, builds the application and starts it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/configure-release.sh
cmake --build build/release --target nimbrel-bridge nimbrel-peer
exec build/release/src/nimbrel-bridge "$@"
