#!/usr/bin/env bash
# Builds the library and runs the demo against the built-in simulator
# (scripts/demo.sh --help says what it does). A fresh build directory is
# configured lean (no tests, no benchmarks); an existing one is kept as it is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh core
if [ ! -f build/CMakeCache.txt ]; then
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_BUILD_TESTS=OFF -DKX_BUILD_BENCH=OFF >/dev/null
fi
cmake --build build -j "$(nproc)" --target demo
exec build/demo/demo "$@"
