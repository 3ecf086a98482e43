#!/usr/bin/env bash
# Installs, builds and starts the studio.
#   scripts/run.sh [file.las|file.laz|project-dir] [--screenshot out.png]
# With no file it opens a generated demo scene. With no DISPLAY it runs under
# xvfb-run; --screenshot saves the window and exits.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$ROOT/scripts/install-deps.sh"
BUILD="$("$ROOT/scripts/build.sh" | tail -1)"
STUDIO="$BUILD/app/studio/ptcloud-studio"
# No file or folder given: open a generated demo scene (made once).
has_source=0
for a in "$@"; do
  case "$a" in --screenshot) skip=1 ;; -*) ;; *) [ "${skip:-0}" = 1 ] && skip=0 || has_source=1 ;; esac
done
if [ "$has_source" = 0 ]; then
  DEMO_DIR="${XDG_DATA_HOME:-$HOME/.local/share}/ptcloud/demo"
  DEMO="$DEMO_DIR/demo.las"
  if [ ! -f "$DEMO" ]; then
    mkdir -p "$DEMO_DIR"
    "$BUILD/app/cli/ptcloud" demo "$DEMO" --points 2000000 >/dev/null
  fi
  set -- "$DEMO" "$@"
fi
if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1600x1000x24" "$STUDIO" "$@"
fi
exec "$STUDIO" "$@"
