# Shared by the shell benchmarks (sourced, after ROOT is set): the ptcloud
# binary (PTCLOUD_BIN), the work folder (BENCH_DIR, else a temporary one
# removed at the end), and measuring a command's wall time, CPU time and
# peak memory with /usr/bin/time -v.
BIN="${PTCLOUD_BIN:-$ROOT/build/app/cli/ptcloud}"
[ -x "$BIN" ] || { echo "no ptcloud binary at $BIN (set PTCLOUD_BIN)" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "needs /usr/bin/time (Debian package 'time')" >&2; exit 2; }

if [ -n "${BENCH_DIR:-}" ]; then
  WORK="$BENCH_DIR"; mkdir -p "$WORK"
else
  WORK="$(mktemp -d /tmp/ptcloud-bench.XXXXXX)"; trap 'rm -rf "$WORK"' EXIT
fi

# Runs a command under /usr/bin/time -v; sets SECONDS_TAKEN, CPU_SECONDS and
# PEAK_KIB.
measure() {
  local log="$WORK/time.log"
  /usr/bin/time -v -o "$log" "$@" >/dev/null
  SECONDS_TAKEN="$(awk -F': ' '/Elapsed \(wall clock\)/ {
      n = split($2, t, ":"); s = 0; for (i = 1; i <= n; ++i) s = s * 60 + t[i]; printf "%.2f", s }' "$log")"
  CPU_SECONDS="$(awk -F': ' '/User time|System time/ { s += $2 } END { printf "%.2f", s }' "$log")"
  PEAK_KIB="$(awk -F': ' '/Maximum resident set size/ {print $2}' "$log")"
}

ratio_of() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f", a / (b > 0.01 ? b : 0.01) }'; }
less_than() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(b == "" || a < b) }'; }
