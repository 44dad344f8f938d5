#!/usr/bin/env bash
# Builds the Debian package of Nimbrel Bridge in the release configuration and prints its path.
# Without an argument it builds in build/package, made afresh; the test command passes the
# release tree it has already built, which has the same settings.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

tree=${1:-}
if [ -z "$tree" ]; then
  tree=build/package
  rm -rf "$tree"
fi
cmake -S . -B "$tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DNIMBREL_TESTS=OFF >/dev/null
cmake --build "$tree"
rm -f "$tree"/nimbrel-bridge_*.deb
(cd "$tree" && cpack -G DEB >/dev/null)
ls "$PWD/$tree"/nimbrel-bridge_*.deb
