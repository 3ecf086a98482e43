#!/usr/bin/env bash
# Installs the Debian packages that the build, the studio and the tests need,
# only those that are missing. Quiet unless something fails. Idempotent.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config ccache
  qtbase5-dev qttools5-dev qttools5-dev-tools libqt5opengl5-dev libqt5svg5-dev
  libopenscenegraph-dev
  libopen3d-dev libeigen3-dev
  xvfb xauth x11-utils
  fonts-wqy-microhei
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO="sudo"; else
    echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1
  fi
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
if ! { $SUDO apt-get update -qq && \
       $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "install-deps: failed to install: ${missing[*]}" >&2
  exit 1
fi
