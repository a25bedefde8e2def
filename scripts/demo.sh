#!/usr/bin/env bash
# Builds the library and runs the demo against the built-in simulator.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh core
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target demo
exec build/examples/demo "$@"
