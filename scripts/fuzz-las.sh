#!/usr/bin/env bash
# Fuzzes the LAS and LAZ reader with libFuzzer for a bounded time. Not part of CI.
#   scripts/fuzz-las.sh [SECONDS]     (default 60)
# Builds tests/fuzz/fuzz_las with clang, AddressSanitizer and UBSan in
# build-fuzz, seeds a corpus with the small shared LAS and LAZ files and runs. Crashing
# inputs land in build-fuzz/fuzz-las-artifacts/.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
SECONDS_TO_RUN="${1:-60}"
BUILD="$ROOT/build-fuzz"
DATA="$ROOT/../shared/data"

if ! command -v clang++ >/dev/null 2>&1 ||
   ! compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null; then
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang libclang-rt-14-dev >/dev/null
fi

mkdir -p "$BUILD"
cmake -S "$ROOT" -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link \
  -DPTCLOUD_SANITIZE=address -DPTCLOUD_FUZZ=ON >"$BUILD/configure.log" 2>&1 ||
  { cat "$BUILD/configure.log" >&2; exit 1; }
cmake --build "$BUILD" -j"$(nproc)" --target fuzz_las

CORPUS="$BUILD/fuzz-las-corpus"
ARTIFACTS="$BUILD/fuzz-las-artifacts/"
mkdir -p "$CORPUS" "$ARTIFACTS"
if [ -d "$DATA" ]; then
  # Small files only: every run writes its input to disk.
  find "$DATA/las" "$DATA/laz" \( -name '*.las' -o -name '*.laz' \) -size -256k -exec cp -n {} "$CORPUS"/ \;
fi
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
"$BUILD/tests/fuzz/fuzz_las" -max_total_time="$SECONDS_TO_RUN" -max_len=262144 -timeout=10 \
  -rss_limit_mb=2048 -artifact_prefix="$ARTIFACTS" "$CORPUS"
