#!/usr/bin/env bash
# Builds the Debian package of Nimbrel Bridge in the optimised tree (build/release, which the run
# and benchmark scripts share) and prints its path.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/configure-release.sh
cmake --build build/release
rm -f build/release/nimbrel-bridge_*.deb
(cd build/release && cpack -G DEB >/dev/null)
ls "$PWD"/build/release/nimbrel-bridge_*.deb
