#!/usr/bin/env bash
# Installs the Debian 12 packages that building, testing and running Nimbrel Bridge need, then the
# browser tools' npm packages (tools/browser, exactly as its lock file pins them). Does nothing when
# they are all present.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev pkg-config git
  qt6-base-dev qt6-websockets-dev qt6-declarative-dev
  qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
  qml6-module-qtquick-window qml6-module-qtquick-templates qml6-module-qtqml-workerscript
  qml6-module-qtquick-dialogs qml6-module-qt-labs-folderlistmodel qml6-module-qttest
  adwaita-icon-theme fonts-dejavu-core
  libssl-dev libavahi-client-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev rapidjson-dev nlohmann-json3-dev
  nodejs chromium libqrencode-dev libmd4c-dev
  dpkg-dev lintian desktop-file-utils appstream dbus-daemon
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

tools/browser/install.sh
