#!/usr/bin/env bash
# Peer benchmark: thinning, Euclidean clustering (103, 104) and the cloth
# filter of `ptcloud run` against CloudCompare's command line on the same
# points, in alternating rounds, with the median of the per-round ratios.
#   PTCLOUD_BIN=build/app/cli/ptcloud bench/bench_peers.sh [POINTS = 1000000] [ROUNDS = 3]
# Installs nothing: when CloudCompare is not installed only our own times are
# printed. It runs headless on Qt's offscreen platform. CloudCompare reads the points
# as binary PLY, written from the same LAS file. The demo scene uses seed 7.
# Thinning keeps 25 %: CloudCompare's `-SS SPATIAL` runs at the spacing that
# keeps as many points (searched in untimed runs), and both results' smallest
# nearest-neighbour distance is printed. Euclidean clustering runs against
# `-EXTRACT_CC` at the octree level whose cell is closest to the tolerance.
set -euo pipefail
POINTS="${1:-1000000}"
ROUNDS="${2:-3}"
BIN="${PTCLOUD_BIN:-build/app/cli/ptcloud}"
[ -x "$BIN" ] || { echo "no ptcloud at $BIN (set PTCLOUD_BIN)" >&2; exit 2; }
BIN="$(cd "$(dirname "$BIN")" && pwd)/$(basename "$BIN")"
WORK="${BENCH_DIR:-$(mktemp -d /tmp/ptcloud-peers.XXXXXX)}"
mkdir -p "$WORK"
[ -n "${BENCH_DIR:-}" ] || trap 'rm -rf "$WORK"' EXIT
CC=""
if command -v CloudCompare >/dev/null; then CC="CloudCompare"; fi
TOLERANCE=0.1

echo "peer benchmark: $POINTS points, $ROUNDS rounds, $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
[ -n "$CC" ] || echo "CloudCompare not installed: only our own times"
"$BIN" demo "$WORK/demo.las" --points "$POINTS" --seed 7 >/dev/null
"$BIN" import "$WORK/demo.las" --project "$WORK/base" >/dev/null

# Wall seconds of a command, its output thrown away.
seconds() {
  local t0 t1
  t0=$(date +%s.%N)
  "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; return 1; }
  t1=$(date +%s.%N)
  echo "$t1 - $t0" | bc -l
}

# LAS -> binary PLY of x y z as doubles; and the smallest nearest-neighbour
# distance of a PLY or LAS file's points (a grid of cells, pairs below 5 m).
python3 - "$WORK/demo.las" "$WORK/demo.ply" <<'EOF'
import struct, sys
src, dst = sys.argv[1], sys.argv[2]
data = open(src, 'rb').read()
offset, = struct.unpack_from('<I', data, 96)
fmt, length = struct.unpack_from('<BH', data, 104)
count, = struct.unpack_from('<Q', data, 247) if data[25] >= 4 else struct.unpack_from('<I', data, 107)
sx, sy, sz, ox, oy, oz = struct.unpack_from('<6d', data, 131)
out = bytearray()
rec = struct.Struct('<3i')
for k in range(count):
    x, y, z = rec.unpack_from(data, offset + k * length)
    out += struct.pack('<3d', x * sx + ox, y * sy + oy, z * sz + oz)
with open(dst, 'wb') as f:
    f.write(('ply\nformat binary_little_endian 1.0\nelement vertex %d\nproperty double x\nproperty double y\n'
             'property double z\nend_header\n' % count).encode())
    f.write(out)
EOF

cat > "$WORK/nn.py" <<'EOF'
import math, struct, sys
def points(path):
    data = open(path, 'rb').read()
    if data[:3] == b'ply':
        head = data[:data.index(b'end_header\n') + 11].decode()
        n = int(head.split('element vertex ')[1].split()[0])
        props = [l.split()[1:] for l in head.splitlines() if l.startswith('property')]
        size = {'double': 8, 'float': 4, 'uchar': 1, 'int': 4, 'uint': 4}
        fmt = '<' + ''.join({'double': 'd', 'float': 'f', 'uchar': 'B', 'int': 'i', 'uint': 'I'}[t] for t, _ in props)
        rec = struct.Struct(fmt)
        base = len(head)
        return [rec.unpack_from(data, base + k * rec.size)[:3] for k in range(n)]
    offset, = struct.unpack_from('<I', data, 96)
    length, = struct.unpack_from('<H', data, 105)
    count, = struct.unpack_from('<Q', data, 247) if data[25] >= 4 else struct.unpack_from('<I', data, 107)
    sx, sy, sz, ox, oy, oz = struct.unpack_from('<6d', data, 131)
    rec = struct.Struct('<3i')
    return [(x * sx + ox, y * sy + oy, z * sz + oz) for x, y, z in
            (rec.unpack_from(data, offset + k * length) for k in range(count))]
pts = points(sys.argv[1])
cell = 5.0
grid = {}
for i, p in enumerate(pts):
    grid.setdefault((int(p[0] // cell), int(p[1] // cell), int(p[2] // cell)), []).append(i)
best = cell
for (cx, cy, cz), ids in grid.items():
    near = [j for dx in (-1, 0, 1) for dy in (-1, 0, 1) for dz in (-1, 0, 1) for j in grid.get((cx + dx, cy + dy, cz + dz), ())]
    for i in ids:
        p = pts[i]
        for j in near:
            if j > i:
                q = pts[j]
                d = (p[0] - q[0]) ** 2 + (p[1] - q[1]) ** 2 + (p[2] - q[2]) ** 2
                if d < best * best: best = math.sqrt(d)
print('%d %.3f' % (len(pts), best))
EOF

# The vertex count of a PLY file.
plyCount() { head -c 400 "$1" | tr -d '\0' | sed -n 's/^element vertex \([0-9]*\).*/\1/p'; }
ccRun() { QT_QPA_PLATFORM=offscreen "$CC" -SILENT -AUTO_SAVE OFF -C_EXPORT_FMT PLY -O "$WORK/demo.ply" "$@" -SAVE_CLOUDS; }
fresh() { rm -rf "$WORK/run" "$WORK"/demo_COMPONENT*; cp -r "$WORK/base" "$WORK/run"; }

median() { sort -g | awk '{a[NR]=$1} END {print (NR % 2 ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2)}'; }

# compare LABEL "OUR ARGS..." -- "PEER ARGS..." : alternating rounds, medians.
compare() {
  local label="$1" ours="$2" peer="$3" a b
  local -a A=() B=() R=()
  for ((k = 0; k < ROUNDS; ++k)); do
    fresh
    a=$(seconds $ours)
    A+=("$a")
    if [ -n "$CC" ] && [ -n "$peer" ]; then
      b=$(seconds $peer)
      B+=("$b")
      R+=("$(echo "$a / $b" | bc -l)")
    fi
  done
  local ma mb mr
  ma=$(printf '%s\n' "${A[@]}" | median)
  if [ ${#B[@]} -gt 0 ]; then
    mb=$(printf '%s\n' "${B[@]}" | median)
    mr=$(printf '%s\n' "${R[@]}" | median)
    printf '%-28s ours %7.2f s   CloudCompare %7.2f s   ratio %5.2f\n' "$label" "$ma" "$mb" "$mr"
  else
    printf '%-28s ours %7.2f s\n' "$label" "$ma"
  fi
}

# Thinning to 25 %, and CloudCompare's spacing that keeps as many.
TARGET=$(( (POINTS + 2) / 4 ))
PEER_SS=""
if [ -n "$CC" ]; then
  spacing=$(python3 -c "import sys; print(1.0)")
  for _ in 1 2 3 4 5 6; do
    rm -f "$WORK"/demo_SUBSAMPLED*.ply
    ccRun -SS SPATIAL "$spacing" >/dev/null 2>&1
    kept=$(plyCount "$(ls "$WORK"/demo_SUBSAMPLED*.ply | head -1)")
    spacing=$(echo "$spacing * sqrt($kept / $TARGET)" | bc -l)
  done
  PEER_SS="ccRun -SS SPATIAL $spacing"
fi
compare "thinning to 25 %" "$BIN run $WORK/run demo --func 200 --params [0.25,5,0.1]" "$PEER_SS"
"$BIN" dataset export "$WORK/run" demo "$WORK/thinned.las" >/dev/null
echo "  kept points and smallest nearest-neighbour distance (m): ours $(python3 "$WORK/nn.py" "$WORK/thinned.las")"
if [ -n "$CC" ]; then
  echo "  CloudCompare: $(python3 "$WORK/nn.py" "$(ls "$WORK"/demo_SUBSAMPLED*.ply | head -1)")"
fi

# Euclidean clustering at 0.1 m against connected components at the octree
# level whose cell (the cube of the box's longest side halved per level) is
# closest to the tolerance.
LEVEL=$(python3 - "$WORK/demo.ply" "$TOLERANCE" <<'EOF'
import math, struct, sys
data = open(sys.argv[1], 'rb').read()
start = data.index(b'end_header\n') + 11
n = (len(data) - start) // 24
lo = [1e300] * 3; hi = [-1e300] * 3
for k in range(0, n, max(1, n // 100000)):
    p = struct.unpack_from('<3d', data, start + 24 * k)
    lo = [min(a, b) for a, b in zip(lo, p)]; hi = [max(a, b) for a, b in zip(hi, p)]
side = max(h - l for h, l in zip(hi, lo))
print(max(1, min(21, round(math.log2(side / float(sys.argv[2]))))))
EOF
)
PEER_CC=""
[ -n "$CC" ] && PEER_CC="ccRun -EXTRACT_CC $LEVEL 20"
compare "Euclidean 103 (0.1 m)" "$BIN run $WORK/run demo --func 103 --params [$TOLERANCE,20,1000000]" "$PEER_CC"
compare "Euclidean fast 104 (0.1 m)" "$BIN run $WORK/run demo --func 104 --params [$TOLERANCE,50]" "$PEER_CC"
compare "cloth filter 107" "$BIN run $WORK/run demo --func 107" ""
echo "octree level $LEVEL; load at the end $(cut -d' ' -f1-3 /proc/loadavg)"
