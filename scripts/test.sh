#!/usr/bin/env bash
# Builds the library, simulator, tests, benchmarks and examples, runs the
# suite, then runs it again under AddressSanitizer+UndefinedBehaviorSanitizer.
# KX_TSAN=1 adds a ThreadSanitizer pass.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

run_suite() { # build-dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest -j "$jobs" --output-on-failure --timeout 300)
}

run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo

# ---- adoption: the installed package as a user meets it --------------------
# The Python binding's tests against the simulator (label python), the
# reference documentation, then an application built outside the tree against
# an installed copy (find_package and pkg-config, C99 and C++17, the installed
# examples) and run from that prefix.
if [ -d python/tests ]; then
  (cd build && ctest --output-on-failure -L python)
fi
cmake --build build --target docs   # the reference; fails on anything undocumented
scripts/consumer_test.sh build
# ---- end of adoption steps -------------------------------------------------

ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=address -DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF
if [ "${KX_TSAN:-0}" = 1 ]; then
  TSAN_OPTIONS=halt_on_error=1 \
    run_suite build-tsan -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=thread -DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF
fi
echo "all suites passed"
