#!/usr/bin/env bash
# The test command, also what CI runs: the suite built with gcc (with gcov
# counters, so that the coverage gate below needs no build of its own), the suite
# again under AddressSanitizer+UndefinedBehaviorSanitizer and under
# ThreadSanitizer (both built with clang, whose UB sanitizer also catches
# float-to-int overflow), then a short fixed-count run of every fuzz target
# over its seed corpus in fuzz/corpus/. Idempotent: build directories are
# reused, and the tree is never written (new fuzz inputs go to a temporary
# directory). KX_FUZZ_RUNS changes the fuzz run count (default 20000).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
gcc=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++)
clang=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
lean=(-DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF)

configure() { # build-dir, cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

run_suite() { # build-dir, cmake args...
  configure "$@"
  find "$1" -name '*.gcda' -delete # coverage counts of this run only
  (cd "$1" && ctest -j "$jobs" --output-on-failure --timeout 300)
}

step() { echo "==== $* ($(date +%T))"; }

step "suite (gcc)"
run_suite build "${gcc[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_COVERAGE=ON
step "coverage gate: every exported kx_ function called by the suite"
scripts/coverage.sh --gate build

# ---- adoption: the installed package as a user meets it --------------------
# The Python binding's tests against the simulator (label python), the
# reference documentation, then an application built outside the tree against
# an installed copy (find_package and pkg-config, C99 and C++17, the installed
# examples) and run from that prefix, then the same from the Debian package.
if [ -d python/tests ]; then
  (cd build && ctest --output-on-failure -L python)
fi
cmake --build build --target docs   # the reference; fails on anything undocumented
scripts/consumer_test.sh build
scripts/consumer_test.sh --deb build   # the same against the Debian package's contents
# ---- end of adoption steps -------------------------------------------------

# ---- ROS: the driver packages in ros/, built against build/ ----------------
# Unit tests of the driver's core, then the rostest of ten drivers against two
# kx_sim processes (about half a minute).
step "ROS packages"
scripts/ros.sh test
# ---- end of ROS ------------------------------------------------------------

step "suite under ASan+UBSan (clang)"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-asan "${clang[@]}" -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=address "${lean[@]}"

step "suite under TSan (clang)"
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  run_suite build-tsan "${clang[@]}" -DCMAKE_BUILD_TYPE=Debug -DKX_SANITIZE=thread "${lean[@]}"

step "fuzz targets, ${KX_FUZZ_RUNS:-20000} runs each"
configure build-fuzz "${clang[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_BUILD_FUZZ=ON -DKX_BUILD_TESTS=OFF "${lean[@]}"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for target in build-fuzz/fuzz/fuzz_*; do
  name=$(basename "$target"); name=${name#fuzz_}
  mkdir -p "$scratch/$name"
  "$target" -runs="${KX_FUZZ_RUNS:-20000}" -max_len=4096 -artifact_prefix="$scratch/" -print_final_stats=0 \
    "$scratch/$name" "fuzz/corpus/$name" 2>"$scratch/$name.log" ||
    { tail -n 40 "$scratch/$name.log"; echo "fuzz_$name failed"; exit 1; }
  echo "fuzz_$name: $(grep -o 'Done [0-9]* runs.*' "$scratch/$name.log")"
done
echo "all suites passed"
