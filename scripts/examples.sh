#!/usr/bin/env bash
# Runs every example program, C and Python, against one fully equipped kx_sim
# (a six-axis force sensor where the model has one, an object between the
# gripper's fingers, an operator's hand for drag teaching, a push on the tool)
# with one arm per model, the arms side by side, each arm's examples one after
# another. An example that exits 77 found its feature missing on that arm
# (skipped); any other non-zero status fails the run, and its output is shown.
# First, the command line every example shares: a bad port, a host name, an
# address without a port.
#
#   scripts/examples.sh [EXAMPLES_DIR [KX_SIM [PYTHONPATH [PY_EXAMPLES_DIR]]]]
#     defaults: build/examples build/kx_sim build/python python/examples
#     (the Python examples run when PYTHONPATH holds the kx_api package)
#   KX_MODELS="AVEN BRIV FIRU DUMO" (default; up to five models) picks the arms.
#
# Against an installed copy:
#   scripts/examples.sh PREFIX/libexec/kx_api/examples PREFIX/bin/kx_sim \
#     PREFIX/lib/python3/dist-packages PREFIX/share/doc/kx_api/examples/python
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build/examples}
sim=${2:-build/kx_sim}
pythonpath=${3:-build/python}
pydir=${4:-python/examples}
read -r -a models <<<"${KX_MODELS:-AVEN BRIV FIRU DUMO}"
[ ${#models[@]} -ge 1 ] && [ ${#models[@]} -le 5 ] || { echo "KX_MODELS: one to five models" >&2; exit 2; }

# shellcheck source=scripts/sim_arms.sh
. scripts/sim_arms.sh
tmp=$(mktemp -d)
trap 'stop_sim; rm -rf "$tmp"' EXIT

# Models built without a sensor flange come in the plain edition only.
editions=()
for m in "${models[@]}"; do
  case $m in FIRU | ESKA) editions+=(P) ;; *) editions+=(QS) ;; esac
done
list() { local IFS=,; echo "$*"; }
start_sim "$sim" "$tmp/sim.out" ${#models[@]} --model "$(list "${models[@]}")" --edition "$(list "${editions[@]}")" \
  --time-scale 10 --no-push --grip-object 400 --hand 5,-3 --push 5,0,-20

programs=()
for p in "$dir"/*; do [ -f "$p" ] && [ -x "$p" ] && programs+=("$p"); done
[ ${#programs[@]} -gt 0 ] || { echo "no example programs in $dir" >&2; exit 1; }
if [ -d "$pythonpath/kx_api" ]; then
  for p in "$pydir"/[a-z]*.py; do programs+=("$p"); done
fi
export PYTHONPATH=$pythonpath PYTHONDONTWRITEBYTECODE=1

# ---- the shared command line ----
probe=$dir/connect_and_read
expect() { # status, what the output must contain, command...
  local want=$1 text=$2 rc=0; shift 2
  "$@" >"$tmp/cli.log" 2>&1 || rc=$?
  if [ $rc -ne "$want" ] || ! grep -qF -- "$text" "$tmp/cli.log"; then
    echo "FAILED: '$*' exited $rc (wanted $want, saying '$text'):"; sed 's/^/    /' "$tmp/cli.log"; exit 1
  fi
}
expect 2 "PORT must be a number" "$probe" 127.0.0.1 80x
expect 2 "PORT must be a number" "$probe" 127.0.0.1 ""
# No port: port 8080 of the address given (nothing listens on 127.0.0.9).
expect 1 "127.0.0.9:8080" "$probe" 127.0.0.9
expect 0 "usage: " "$probe" --help
read -r host port <<<"${arms[0]}"
if [ "$host" = 127.0.0.1 ]; then expect 0 "connecting to 127.0.0.1:$port" "$probe" localhost "$port"; fi

run_arm() { # index: every example against that arm; one result line each
  local k=$1 p name rc
  for p in "${programs[@]}"; do
    name=$(basename "$p")
    rc=0
    # shellcheck disable=SC2086
    case $p in
      *.py) timeout 120 /usr/bin/python3 "$p" ${arms[$k]} >"$tmp/$k.$name.log" 2>&1 || rc=$? ;;
      *) timeout 120 "$p" ${arms[$k]} >"$tmp/$k.$name.log" 2>&1 || rc=$? ;;
    esac
    echo "$rc ${models[$k]}-${editions[$k]} $name"
  done >"$tmp/$k.results"
}
runs=()
for k in "${!arms[@]}"; do
  run_arm "$k" &
  runs+=($!)
done
wait_failed=0
for pid in "${runs[@]}"; do wait "$pid" || wait_failed=1; done

failed=0 passed=0 skipped=0
for k in "${!arms[@]}"; do
  while read -r rc arm name; do
    case $rc in
      0) passed=$((passed + 1)) ;;
      77) skipped=$((skipped + 1)); echo "skipped $name on $arm: $(tail -n 1 "$tmp/$k.$name.log")" ;;
      *) failed=$((failed + 1)); echo "FAILED $name on $arm (status $rc):"; sed 's/^/    /' "$tmp/$k.$name.log" ;;
    esac
  done <"$tmp/$k.results"
done
echo "examples: $passed passed, $skipped skipped, $failed failed on ${#arms[@]} arms ($(list "${models[@]}"))"
if [ $failed -gt 0 ] || [ $wait_failed -ne 0 ]; then
  echo "simulator's reasons for what it refused:"; sed 's/^/    /' "$tmp/sim.out.err"
  exit 1
fi

# ---- the streaming guard: with every joint slowed to 10 deg/s, a 10 ms step
# may be 0.1 deg, less than the circles need; the streams must stop the arm
# and fail instead of sending the step.
if [ -d "$pythonpath/kx_api" ]; then
  read -r host port <<<"${arms[0]}"
  /usr/bin/python3 -c 'import sys, kx_api
with kx_api.Arm(sys.argv[1], int(sys.argv[2])) as arm:
    for joint in range(1, arm.dof + 1):
        arm.set_joint_max_speed(joint, 10.0)' "$host" "$port"
  for p in "$dir/stream_circle" "$dir/stream_circle_ik7"; do expect 1 "would move joint" "$p" "$host" "$port"; done
  for p in "$pydir/stream_circle.py" "$pydir/stream_circle_ik7.py"; do
    expect 1 "would move joint" /usr/bin/python3 "$p" "$host" "$port"
  done
  echo "streaming guard: every stream stopped before a step beyond 10 deg/s"
fi
