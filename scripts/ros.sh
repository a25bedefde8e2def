#!/usr/bin/env bash
# Builds the ROS 1 packages in ros/ into build/ros against the library of the
# main CMake build (built first when needed, lean when build/ is new; an
# existing build/ keeps its options). Afterwards
#   source build/ros/devel/setup.bash
# makes `rosrun kx_driver ...` and `roslaunch kx_driver ...` work.
#   scripts/ros.sh          build
#   scripts/ros.sh test     build, then run the packages' tests (gtest + rostest)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
jobs=$(nproc)
if [ ! -f build/CMakeCache.txt ]; then
  cmake -S . -B build -G Ninja "${launcher[@]}" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKX_BUILD_TESTS=OFF -DKX_BUILD_BENCH=OFF -DKX_BUILD_EXAMPLES=OFF >/dev/null
fi
cmake --build build -j "$jobs" --target api_c kx_sim

# Debian's ROS Python modules belong to /usr/bin/python3, whatever python3 comes first on PATH.
ros_env=(env PATH="/usr/bin:$PATH" ROS_PYTHON_VERSION=3)
mkdir -p build/ros
catkin=(catkin_make -C "$root/build/ros" --source "$root/ros" -DCMAKE_BUILD_TYPE=RelWithDebInfo
        -DPYTHON_EXECUTABLE=/usr/bin/python3 -DKX_BUILD_DIR="$root/build" -DCATKIN_ENABLE_TESTING=ON
        -DCMAKE_CXX_COMPILER=g++ "${launcher[@]}" -j"$jobs")
"${ros_env[@]}" "${catkin[@]}"

if [ "${1:-}" = test ]; then
  # The tests start their own roscore on a free port: never a master someone else uses.
  export ROS_MASTER_URI=http://127.0.0.1:$((11411 + RANDOM % 500))
  "${ros_env[@]}" "${catkin[@]}" run_tests
  "${ros_env[@]}" catkin_test_results "$root/build/ros/test_results"
fi
