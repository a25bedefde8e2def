#!/usr/bin/env bash
# Installs the Debian packages the build needs, only when one is missing.
set -euo pipefail
pkgs=(build-essential cmake ninja-build pkg-config libcjson-dev libgtest-dev libgmock-dev libbenchmark-dev
      liborocos-kdl-dev clang libclang-rt-14-dev gcovr ccache doxygen python3 python3-pytest)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
