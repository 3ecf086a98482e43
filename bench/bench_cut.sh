#!/usr/bin/env bash
# Cut benchmark: `ptcloud cut --inner` of a box holding about a tenth of a
# large demo dataset, against reading and writing the dataset's points file
# once, and the cut's peak memory against the file's size.
#
#   bench/bench_cut.sh [POINTS]
#     POINTS  size of the generated demo scene (default 20000000)
#   PTCLOUD_BIN  the ptcloud binary (default: build/app/cli/ptcloud)
#   BENCH_DIR    where the files go (default: a new folder in /tmp, removed at the end)
#   ROUNDS       how many times each is measured, rounds interleaved (default 3)
#
# The cut streams the file block by block and saves durably (fsync through
# QSaveFile), so the baselines are `cp` of the points file and `cp` followed
# by `sync` of the copy, both from a warm page cache. Between rounds
# `ptcloud dataset undo` puts the points back. The fastest round of each is
# kept (other load only ever adds time); the load average is printed beside.
# Targets: cut at most 2x cp+sync, peak memory under 2x the points file.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
POINTS="${1:-20000000}"
ROUNDS="${ROUNDS:-3}"
source "$ROOT/bench/bench_common.sh"

"$BIN" demo "$WORK/demo.las" --points "$POINTS" >/dev/null
"$BIN" import "$WORK/demo.las" --project "$WORK/p" >/dev/null
rm "$WORK/demo.las"
POINTS_FILE="$WORK/p/datasets/demo/points.pcb"
[ -f "$POINTS_FILE" ] || POINTS_FILE="$(find "$WORK/p" -name points.pcb | head -1)"
INFO="$("$BIN" dataset info "$WORK/p" demo --json)"
# The box: the middle of the plan, sqrt(0.1) of each side, every height.
BOX="$(echo "$INFO" | awk '{
    match($0, /"bounds":\[[^]]*\]/); split(substr($0, RSTART + 10, RLENGTH - 11), b, ",");
    f = sqrt(0.1);
    printf "%.3f,%.3f,%.3f,%.3f,%.3f,%.3f", (b[1] + b[4]) / 2, (b[2] + b[5]) / 2, (b[3] + b[6]) / 2,
           f * (b[4] - b[1]), f * (b[5] - b[2]), 2 * (b[6] - b[3]) + 1 }')"
MIB=$(( $(stat -c %s "$POINTS_FILE") / 1048576 ))
echo "ptcloud cut benchmark: $(nproc) cores, $POINTS points, points file $MIB MiB, box $BOX"

cp "$POINTS_FILE" "$WORK/copy.pcb"; rm "$WORK/copy.pcb"   # warms the cache
cp_s=""; cps_s=""; cut_s=""; peak_mib=0; left=""
for ((round = 1; round <= ROUNDS; ++round)); do
  measure cp "$POINTS_FILE" "$WORK/copy.pcb"
  if less_than "$SECONDS_TAKEN" "$cp_s"; then cp_s="$SECONDS_TAKEN"; fi
  rm "$WORK/copy.pcb"
  measure sh -c 'cp "$1" "$2" && sync "$2"' sh "$POINTS_FILE" "$WORK/copy.pcb"
  if less_than "$SECONDS_TAKEN" "$cps_s"; then cps_s="$SECONDS_TAKEN"; fi
  rm "$WORK/copy.pcb"
  measure "$BIN" cut "$WORK/p" demo --box "$BOX" --inner
  if less_than "$SECONDS_TAKEN" "$cut_s"; then cut_s="$SECONDS_TAKEN"; fi
  if [ $((PEAK_KIB / 1024)) -gt "$peak_mib" ]; then peak_mib=$((PEAK_KIB / 1024)); fi
  left="$("$BIN" dataset info "$WORK/p" demo --json | sed -n 's/.*"points":\([0-9]*\).*/\1/p')"
  "$BIN" dataset undo "$WORK/p" demo
done
echo "points left after the cut: $left of $POINTS"
printf '%-8s %-10s %-8s %-9s %-17s %-13s %-11s %s\n' "cp s" "cp+sync s" "cut s" "cut/cp" "cut/(cp+sync)" "peak RSS MiB" "peak/file" "load"
printf '%-8s %-10s %-8s %-9s %-17s %-13s %-11s %s\n' "$cp_s" "$cps_s" "$cut_s" "$(ratio_of "$cut_s" "$cp_s")" \
  "$(ratio_of "$cut_s" "$cps_s")" "$peak_mib" "$(ratio_of "$peak_mib" "$MIB")" "$(cut -d' ' -f1-3 /proc/loadavg)"
