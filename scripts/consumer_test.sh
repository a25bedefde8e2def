#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and uses it as an outsider
# would: builds tests/consumer (the README's program, as C99 and as C++17,
# and the installed examples' sources) with find_package(kx_api) and the
# program again with pkg-config, runs the programs against the installed
# kx_sim on a six- and a seven-joint arm, then every installed example, C and
# Python, with scripts/examples.sh; all without LD_LIBRARY_PATH.
#
#   scripts/consumer_test.sh [BUILD_DIR]          (default: build)
#   scripts/consumer_test.sh --deb [BUILD_DIR]    (the Debian package instead:
#       built with CPack, checked with dpkg-deb, unpacked into a scratch root)
#   KX_PREFIX=/usr scripts/consumer_test.sh       (test an existing install instead)
set -euo pipefail
cd "$(dirname "$0")/.."
deb=""
if [ "${1:-}" = --deb ]; then deb=1; shift; fi
build=${1:-build}
# shellcheck source=scripts/sim_arms.sh
. scripts/sim_arms.sh
tmp=$(mktemp -d)
trap 'stop_sim; rm -rf "$tmp"' EXIT
unset LD_LIBRARY_PATH

prefix=${KX_PREFIX:-}
if [ -n "$deb" ]; then
  rm -f "$build"/kx-api_*.deb
  cmake --build "$build" --target package >/dev/null
  pkg=$(ls "$build"/kx-api_*.deb)
  echo "== consumer: $(basename "$pkg")"
  dpkg-deb --field "$pkg" Package Version Architecture Depends | tee "$tmp/fields"
  grep -q '^Depends:.*libcjson' "$tmp/fields" || { echo "the package does not depend on libcjson"; exit 1; }
  dpkg-deb --contents "$pkg" >"$tmp/contents"
  grep -q '/usr/include/kx_api/kx_interface.h$' "$tmp/contents"
  dpkg-deb -x "$pkg" "$tmp/root"
  prefix=$tmp/root/usr
elif [ -z "$prefix" ]; then
  prefix=$tmp/prefix
  cmake --install "$build" --prefix "$prefix" >/dev/null
fi
docdir=$prefix/share/doc/kx_api
[ -d "$docdir" ] || docdir=$(dirname "$(find "$prefix/share/doc" -path '*kx_api*/examples/example_arm.h' | head -1)")/..
echo "== consumer: installed copy in $prefix"
for h in kx_interface_global.h kx_structures.h kx_core.h MIO_JSON.h; do
  if find "$prefix/include" -name "$h" 2>/dev/null | grep -q .; then echo "internal header $h installed"; exit 1; fi
done

echo "== consumer: the README's program is tests/consumer/main.c"
awk '/^```c$/ && !done {on = 1; next} on && /^```$/ {on = 0; done = 1} on' README.md | diff - tests/consumer/main.c

echo "== consumer: find_package(kx_api)"
cmake -S tests/consumer -B "$tmp/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DKX_EXAMPLES_DIR="$docdir/examples" >/dev/null
cmake --build "$tmp/cmake" >/dev/null

echo "== consumer: pkg-config"
pc=$(find "$prefix" -name kx_api.pc | head -1)
export PKG_CONFIG_PATH=$(dirname "$pc")
cflags=$(pkg-config --cflags kx_api)
libs="$(pkg-config --libs kx_api) -Wl,-rpath,$(pkg-config --variable=libdir kx_api)"
# shellcheck disable=SC2086
cc -std=c99 -Wall -Wextra -Werror $cflags tests/consumer/main.c -o "$tmp/pc_c" $libs
# shellcheck disable=SC2086
c++ -std=c++17 -Wall -Wextra -Werror -x c++ $cflags tests/consumer/main.c -x none -o "$tmp/pc_cxx" $libs

echo "== consumer: against the installed simulator"
"$prefix/bin/kx_sim" --help | grep -q 127.0.0.K
"$prefix/bin/kx_sim" --version
udp=$((20000 + RANDOM % 20000))
start_sim "$prefix/bin/kx_sim" "$tmp/sim.out" 2 --model AVEN,BRIV --edition QS,QA --time-scale 10 --udp-port "$udp"
cat "$tmp/sim.out"

# The examples built from the installed sources are checked above to compile;
# the installed programs of the same sources run below.
for arm in "${arms[@]}"; do
  for p in "$tmp/cmake/app_c" "$tmp/cmake/app_cxx" "$tmp/pc_c" "$tmp/pc_cxx"; do
    echo "-- $(basename "$p") $arm"
    # shellcheck disable=SC2086
    "$p" $arm
  done
done
stop_sim

echo "== consumer: every installed example, C and Python"
examples=$(dirname "$(find "$prefix" -path '*kx_api/examples/connect_and_read' -type f | head -1)")
pythonpath=$(dirname "$(find "$prefix" -path '*/kx_api/_ffi.py' | head -1)")/..
scripts/examples.sh "$examples" "$prefix/bin/kx_sim" "$pythonpath" "$docdir/examples/python"
echo "consumer test passed"
