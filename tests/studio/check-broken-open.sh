#!/usr/bin/env bash
# The studio given files it cannot read on its command line: it says why as
# the command line tool does, fails, and leaves no project folder behind.
#   check-broken-open.sh STUDIO
set -euo pipefail
STUDIO="$1"
TMP="$(mktemp -d)"
trap 'rm -rf "$TMP"' EXIT
printf 'not a point cloud' >"$TMP/notes.las"
printf 'LASF' >"$TMP/cut.las"
for file in notes.las cut.las missing.las; do
  if "$STUDIO" "$TMP/$file" --screenshot "$TMP/shot.png" 2>"$TMP/err"; then
    echo "$file: opened" >&2; exit 1
  fi
  grep -q "$TMP/$file: " "$TMP/err" || { echo "$file: no reason given:" >&2; cat "$TMP/err" >&2; exit 1; }
  if [ -e "$TMP/${file%.las}.ptcloud" ]; then echo "$file: project folder left behind" >&2; exit 1; fi
  if [ -e "$TMP/shot.png" ]; then echo "$file: window shown" >&2; exit 1; fi
done
