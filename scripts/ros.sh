#!/usr/bin/env bash
# Builds the ROS 1 packages in ros/ into build/ros against the library of the
# main CMake build (built first when needed, lean when build/ is new; an
# existing build/ keeps its options). Afterwards
#   source build/ros/devel/setup.bash
# makes `rosrun kx_driver ...` and `roslaunch kx_driver ...` work.
#   scripts/ros.sh          build
#   scripts/ros.sh test     build, then run the packages' tests (gtest + rostest)
#   scripts/ros.sh bench    build, then measure datagram-to-subscriber latency and
#                           driver CPU with 1 and with 10 arms (a private roscore)
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
# catkin caches the environment of its first configure and adds only the devel
# folders that exist then: without this one, tests on a fresh clone cannot
# import the generated messages.
mkdir -p build/ros/devel/lib/python3/dist-packages
catkin=(catkin_make -C "$root/build/ros" --source "$root/ros" -DCMAKE_BUILD_TYPE=RelWithDebInfo
        -DPYTHON_EXECUTABLE=/usr/bin/python3 -DKX_BUILD_DIR="$root/build" -DCATKIN_ENABLE_TESTING=ON
        -DCMAKE_CXX_COMPILER=g++ "${launcher[@]}" -j"$jobs")
"${ros_env[@]}" "${catkin[@]}"

# A master of our own on a free port, never one someone else uses.
master_port=$(/usr/bin/python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
export ROS_MASTER_URI=http://127.0.0.1:$master_port ROS_IP=127.0.0.1 ROS_HOME=$root/build/ros/home
unset ROS_HOSTNAME  # ROS_IP: every node of the tests and the bench talks over loopback only

case "${1:-}" in
  test)
    rm -rf build/ros/build/test_results
    "${ros_env[@]}" "${catkin[@]}" run_tests
    "${ros_env[@]}" catkin_test_results "$root/build/ros/build/test_results" ;;
  bench)
    "${ros_env[@]}" bash -c "source build/ros/devel/setup.bash && exec roscore -p $master_port" >/dev/null 2>&1 &
    core=$!
    trap 'kill -INT $core; wait $core' EXIT
    for arms in 1 10; do
      "${ros_env[@]}" bash -c "source build/ros/devel/setup.bash && \
        until rosnode list >/dev/null 2>&1; do sleep 0.2; done && \
        build/ros/devel/lib/kx_driver/kx_latency_bench --kx-sim build/kx_sim --arms $arms --seconds 10" 2>/dev/null |
        grep '^arms'
    done ;;
esac
