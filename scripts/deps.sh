#!/usr/bin/env bash
# Installs the Debian packages the build needs, only when one is missing.
#   scripts/deps.sh          everything the test command needs (library, tools, ROS, browser tests)
#   scripts/deps.sh core     only what the library, simulator, examples and demo need
set -euo pipefail
core=(build-essential cmake ninja-build pkg-config libcjson-dev)
suite=(libgtest-dev libgmock-dev libbenchmark-dev liborocos-kdl-dev clang libclang-rt-14-dev gcovr ccache
       doxygen python3 python3-pytest dpkg-dev
       # tools/kx and its live view, and the browser that tests the page
       libcivetweb-dev libjs-three chromium chromium-driver python3-selenium
       # ros/: the ROS 1 packages Debian ships
       ros-base-dev libtf2-ros-dev libactionlib-dev librostest-dev ros-robot-state-publisher
       libsensor-msgs-dev libgeometry-msgs-dev libtrajectory-msgs-dev libstd-srvs-dev
       libdiagnostic-msgs-dev libactionlib-msgs-dev python3-rostest python3-tf2-ros rviz)
case "${1:-all}" in
  core) pkgs=("${core[@]}") ;;
  all) pkgs=("${core[@]}" "${suite[@]}") ;;
  *) echo "usage: scripts/deps.sh [core|all]" >&2; exit 2 ;;
esac
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
