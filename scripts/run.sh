#!/usr/bin/env bash
# Installs, builds and starts the studio.
#   scripts/run.sh [file.las|project-dir] [--screenshot out.png]
# With no file it opens a generated demo scene. With no DISPLAY it runs under
# xvfb-run; --screenshot saves the window and exits.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$ROOT/scripts/install-deps.sh"
BUILD="$("$ROOT/scripts/build.sh" | tail -1)"
STUDIO="$BUILD/app/studio/ptcloud-studio"
if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1600x1000x24" "$STUDIO" "$@"
fi
exec "$STUDIO" "$@"
