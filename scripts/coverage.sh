#!/usr/bin/env bash
# Line coverage of the library and the gate on it: every exported kx_
# function of libapi_c.so is executed by the suite. The script fails when one
# is not.
#
#   scripts/coverage.sh            builds build-cov with gcov instrumentation
#                                  (gcc, atomic counters: the library counts
#                                  from several threads), runs the suite, reports
#   scripts/coverage.sh --gate DIR reports on a build whose suite has just run
#                                  (scripts/test.sh builds its gcc lane this way)
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
if [ "${1:-}" = "--gate" ]; then
  dir=${2:?usage: coverage.sh --gate BUILD_DIR}
else
  scripts/deps.sh
  dir=build-cov
  launcher=()
  if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  cmake -S . -B "$dir" -G Ninja "${launcher[@]}" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Debug \
    -DKX_COVERAGE=ON -DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build "$dir" -j "$jobs"
  find "$dir" -name '*.gcda' -delete # counts of this run only
  (cd "$dir" && ctest -j "$jobs" --timeout 300 --output-on-failure) || echo "(some tests failed; coverage still reported)"
fi

report="$dir/coverage.json"
# gcovr replaces its output file, so it gets a file of its own: given /dev/null
# it would replace the device with a regular file.
gcovr -r . --object-directory "$dir" --gcov-ignore-parse-errors --filter 'src/' --filter 'algo/' --filter 'include/' \
  --print-summary --json "$report" -o "$dir/coverage.txt" -j "$jobs" | grep -E '^(lines|functions):'
if [ "${1:-}" != "--gate" ]; then
  gcovr -r . --object-directory "$dir" --gcov-ignore-parse-errors --filter 'src/' --filter 'algo/' -j "$jobs" --sort-percentage |
    sed -n '1,4p;/^src\/\|^algo\//p' | tail -n +1 | head -n 60
fi

# Exported kx_ functions, from the dynamic symbol table.
exported=$(nm -D --defined-only "$dir/libapi_c.so" | awk '$2 == "T" && $3 ~ /^kx_/ {print $3}' | sort -u)
executed=$(/usr/bin/python3 - "$report" <<'PY'
import json, sys
data = json.load(open(sys.argv[1]))
for f in data.get("files", []):
    for fn in f.get("functions", []):
        if fn.get("execution_count", 0) > 0:
            print(fn["name"].split("(")[0])
PY
)
uncalled=$(comm -23 <(echo "$exported") <(echo "$executed" | sort -u))
echo "exported kx_ functions: $(echo "$exported" | wc -l)"
if [ -n "$uncalled" ]; then
  echo "exported kx_ functions no test calls:"
  echo "$uncalled" | sed 's/^/  /'
  exit 1
fi
echo "every exported kx_ function is called by the suite"
