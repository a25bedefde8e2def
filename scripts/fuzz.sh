#!/usr/bin/env bash
# Longer fuzzing: every target (or those named) for KX_FUZZ_SECONDS each
# (default 600), growing a working corpus in build-fuzz/corpus/<name> seeded
# from fuzz/corpus/<name>. Crashes are written to build-fuzz/artifacts/.
#   scripts/fuzz.sh [framer|decoders|realtime|...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S . -B build-fuzz -G Ninja "${launcher[@]}" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_BUILD_FUZZ=ON -DKX_BUILD_TESTS=OFF -DKX_BUILD_BENCH=OFF \
  -DKX_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build-fuzz -j "$(nproc)"
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for t in build-fuzz/fuzz/fuzz_*; do n=$(basename "$t"); names+=("${n#fuzz_}"); done
fi
mkdir -p build-fuzz/artifacts
for name in "${names[@]}"; do
  mkdir -p "build-fuzz/corpus/$name"
  echo "==== fuzz_$name for ${KX_FUZZ_SECONDS:-600} s"
  "build-fuzz/fuzz/fuzz_$name" -max_total_time="${KX_FUZZ_SECONDS:-600}" -max_len=4096 \
    -artifact_prefix=build-fuzz/artifacts/ "build-fuzz/corpus/$name" "fuzz/corpus/$name"
done
