#!/usr/bin/env bash
# LAZ import benchmark: `ptcloud import` of a LAZ file against import of the
# same points as LAS, for the real tile bcts_1 (its original LAZ and the LAS
# decompressed from it) and for the demo scene written both ways by
# `ptcloud dataset export` (so the LAZ is our encoder's). Then bench_laz reads
# each pair without building (decoding speed, size share).
#
#   bench/bench_laz.sh [POINTS]     POINTS: demo scene size (default 20000000)
#   PTCLOUD_BIN, BENCH_BIN  binaries (default build/app/cli/ptcloud, build/bench/bench_laz)
#   BENCH_DIR               where the files go (default: a new folder in /tmp, removed at the end)
#   ROUNDS                  imports of each file; the fastest counts (default 2)
#
# Prints wall time, CPU time (all threads) and peak RSS of each import from
# /usr/bin/time -v, the LAZ/LAS wall ratio and the load average.
# Targets: LAZ import at most 1.5x the LAS import, peak memory under 1 GiB.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
POINTS="${1:-20000000}"
BENCH="${BENCH_BIN:-$ROOT/build/bench/bench_laz}"
ROUNDS="${ROUNDS:-2}"
DATA="$ROOT/../shared/data"
source "$ROOT/bench/bench_common.sh"
DIR="$WORK"

"$BIN" demo "$DIR/scene.las" --points "$POINTS" >/dev/null
"$BIN" import "$DIR/scene.las" --project "$DIR/scene" >/dev/null
"$BIN" dataset export "$DIR/scene" scene "$DIR/demo.las" >/dev/null
"$BIN" dataset export "$DIR/scene" scene "$DIR/demo.laz" >/dev/null
rm -rf "$DIR/scene" "$DIR/scene.las"
PAIRS=("$DIR/demo")
if [ -f "$DATA/laz/bcts_1.laz" ]; then
  cp "$DATA/las/bcts_1.las" "$DATA/laz/bcts_1.laz" "$DIR/"
  PAIRS+=("$DIR/bcts_1")
fi

# Prints "wall cpu rss_kib" of the fastest of ROUNDS imports of $1.
import_time() {
  local best="" bestWall=""
  for _ in $(seq "$ROUNDS"); do
    rm -rf "$DIR/p"
    measure "$BIN" import "$1" --project "$DIR/p"
    if less_than "$SECONDS_TAKEN" "$bestWall"; then
      bestWall="$SECONDS_TAKEN"; best="$SECONDS_TAKEN $CPU_SECONDS $PEAK_KIB"
    fi
  done
  echo "$best"
}

status=0
printf "%-10s %9s %9s %9s %9s %9s %9s %7s\n" file "las wall" "las cpu" "las MiB" "laz wall" "laz cpu" "laz MiB" ratio
for base in "${PAIRS[@]}"; do
  read -r lw lc lm < <(import_time "$base.las")
  read -r zw zc zm < <(import_time "$base.laz")
  ratio=$(awk -v a="$zw" -v b="$lw" 'BEGIN {printf "%.2f", a / b}')
  flag=""
  awk -v r="$ratio" 'BEGIN {exit !(r > 1.5)}' && flag=" SLOW" && status=1
  [ "$zm" -ge 1048576 ] && flag="$flag MEMORY" && status=1
  printf "%-10s %9s %9s %9d %9s %9s %9d %6sx%s\n" "$(basename "$base")" "$lw" "$lc" $((lm / 1024)) "$zw" "$zc" \
    $((zm / 1024)) "$ratio" "$flag"
done
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
"$BENCH" 1 "${PAIRS[@]}"
exit $status
