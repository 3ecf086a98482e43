#!/usr/bin/env bash
# Installs, builds and runs every test. GL tests run under xvfb-run.
# PTCLOUD_SANITIZE=address|thread scripts/test.sh runs them in a sanitizer build.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$ROOT/scripts/install-deps.sh"
BUILD="$("$ROOT/scripts/build.sh" | tail -1)"
cd "$BUILD"
export QT_QPA_PLATFORM=offscreen
# GL tests carry the label "gl" and need a display; the rest run offscreen.
ctest --output-on-failure -j2 -LE gl
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1600x1000x24" \
  ctest --output-on-failure -j1 -L gl
