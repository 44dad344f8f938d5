#!/usr/bin/env bash
# Checks what installing puts on a desktop, from a built release tree and its Debian package:
# installs into a temporary prefix, validates the desktop entry and the AppStream data, runs
# lintian on the package, compares each program's --help with its manual page, and starts the
# installed program headless over the fake engine until Codex is ready.
# Usage: scripts/check-install.sh BUILD-TREE PACKAGE.deb
set -euo pipefail
tree=$1
package=$2
root=$(mktemp -d)
trap 'kill "${bridge:-0}" 2>/dev/null || true; rm -rf "$root"' EXIT
prefix=$root/usr

cmake --install "$tree" --prefix "$prefix" >/dev/null
desktop-file-validate "$prefix/share/applications/nimbrel-bridge.desktop"
appstreamcli validate --no-net "$prefix/share/metainfo/nimbrel-bridge.metainfo.xml" >/dev/null
lintian --fail-on error "$package" 2>&1 | grep -v '^running with root privileges' || true
lintian --fail-on error "$package" >/dev/null 2>&1

# Every option of --help is in the manual page, and every option the page lists is in --help.
for program in nimbrel-bridge nimbrel-peer; do
  from_help=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/$program" --help |
              grep -oE '^ +(-[a-z], )?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort -u)
  from_page=$(zcat "$prefix/share/man/man1/$program.1.gz" |
              sed -n '/^\.SH OPTIONS/,/^\.SH [^O]/p' | sed 's/\\-/-/g' |
              grep -oE '^\.B[I]? --[a-z-]+|^\.BR (-[a-z] ", " )?--[a-z-]+' | grep -oE -- '--[a-z-]+' | sort -u)
  if [ "$from_help" != "$from_page" ]; then
    echo "$program: --help and the manual page list different options" >&2
    diff <(echo "$from_help") <(echo "$from_page") >&2 || true
    exit 1
  fi
done

version=$(env -u DISPLAY -u WAYLAND_DISPLAY "$prefix/bin/nimbrel-bridge" --version)
[ "$version" = "nimbrel-bridge $(sed -n 's/^project(NimbrelBridge VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" ] ||
  { echo "Unexpected version line: $version" >&2; exit 1; }

# The installed program, headless, over the fake engine.
mkdir -p "$root/home" "$root/fakebin"
ln -s "$PWD/$tree/tools/fake-codex/fake-codex" "$root/fakebin/codex"
env -u DISPLAY -u WAYLAND_DISPLAY HOME="$root/home" XDG_CONFIG_HOME="$root/home/.config" \
  XDG_DATA_HOME="$root/home/.local/share" PATH="$root/fakebin:/usr/bin:/bin" \
  NIMBREL_LINK_ADDRESS=127.0.0.1 NIMBREL_LINK_PORT=0 \
  "$prefix/bin/nimbrel-bridge" --headless < /dev/null 2> "$root/bridge.log" &
bridge=$!
# A generous bound, for a loaded machine: it only keeps a broken start from hanging the check.
for _ in $(seq 600); do
  grep -q "Codex app-server ready" "$root/bridge.log" && break
  kill -0 "$bridge" 2>/dev/null || break
  sleep 0.1
done
grep -q "Codex app-server ready" "$root/bridge.log" ||
  { echo "The installed program did not reach Codex:" >&2; cat "$root/bridge.log" >&2; exit 1; }
echo "Installed files, package and installed program checked: $(basename "$package")"
