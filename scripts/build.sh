#!/usr/bin/env bash
# Configures (once) and builds the tree incrementally; prints the build folder.
# Used by run.sh and test.sh.
#   PTCLOUD_SANITIZE=address|thread  builds into build-<kind> with that sanitizer
#   PTCLOUD_BUILD_DIR                overrides the build folder
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SAN="${PTCLOUD_SANITIZE:-}"
if [ -n "$SAN" ]; then
  BUILD="${PTCLOUD_BUILD_DIR:-$ROOT/build-$SAN}"
else
  BUILD="${PTCLOUD_BUILD_DIR:-$ROOT/build}"
fi
mkdir -p "$BUILD"
LOG="$BUILD/build.log"
if [ ! -f "$BUILD/CMakeCache.txt" ]; then
  if ! cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DPTCLOUD_SANITIZE="$SAN" >"$LOG" 2>&1; then
    cat "$LOG" >&2; exit 1
  fi
fi
if ! cmake --build "$BUILD" -j"$(nproc)" >"$LOG" 2>&1; then
  grep -E -B2 -A6 'error|Error' "$LOG" | head -80 >&2
  echo "build failed: full log in $LOG" >&2
  exit 1
fi
# Our own code builds without warnings; show any that crept in.
grep -E 'warning:' "$LOG" | grep -v '^/usr/' | sort -u | head -20 >&2 || true
echo "$BUILD"
