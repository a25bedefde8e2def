# Sourced by the scripts that run programs against kx_sim (examples.sh,
# consumer_test.sh): start_sim starts one in the background on free ports and
# waits until every arm listens, filling `arms` with "HOST PORT" per arm;
# stop_sim ends it (also safe from an EXIT trap).
sim_pid=""
arms=()

start_sim() { # kx_sim, output file (its standard error goes to FILE.err), arm count, options...
  local bin=$1 out=$2 n=$3
  shift 3
  "$bin" --arms "$n" --port 0 "$@" >"$out" 2>"$out.err" &
  sim_pid=$!
  for _ in $(seq 100); do [ "$(wc -l <"$out")" -ge "$n" ] && break; sleep 0.1; done
  mapfile -t arms < <(sed -n 's/^arm [0-9] listening on \([0-9.]*\):\([0-9]*\) .*/\1 \2/p' "$out")
  [ ${#arms[@]} -eq "$n" ] || { echo "kx_sim did not start:"; cat "$out" "$out.err"; return 1; }
}

stop_sim() {
  if [ -n "$sim_pid" ]; then kill "$sim_pid" 2>/dev/null || true; wait "$sim_pid" 2>/dev/null || true; fi
  sim_pid=""
}
