#!/usr/bin/env bash
# Installs the build's component into a temporary prefix, builds the tiny host
# against the installed package, and runs it (under the caller's display).
#   check-installed-host.sh BUILD_DIR HOST_SOURCE_DIR
set -euo pipefail
BUILD="$1"
HOST="$2"
TMP="$(mktemp -d)"
trap 'rm -rf "$TMP"' EXIT
cmake --install "$BUILD" --prefix "$TMP/prefix" >"$TMP/install.log"
cmake -S "$HOST" -B "$TMP/build" -DCMAKE_PREFIX_PATH="$TMP/prefix" -DCMAKE_BUILD_TYPE=Release \
  >"$TMP/configure.log" || { cat "$TMP/configure.log"; exit 1; }
cmake --build "$TMP/build" -j2 >"$TMP/build.log" || { cat "$TMP/build.log"; exit 1; }
LD_LIBRARY_PATH="$TMP/prefix/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" "$TMP/build/tiny-host"
