#!/usr/bin/env bash
# Prints the lines of test code (.cpp/.h under tests/) against the lines of
# product code (every other .cpp/.h outside build folders and bench/), and
# their ratio. Benchmarks count as neither.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$ROOT"
count() { git ls-files -- "$@" | grep -E '\.(cpp|h)$' | tr '\n' '\0' | xargs -0 -r cat | wc -l; }
tests=$(count tests)
product=$(count . ':!tests' ':!bench')
echo "tests:   $tests lines"
echo "product: $product lines"
awk -v t="$tests" -v p="$product" 'BEGIN { printf "ratio:   %.1f %%\n", 100 * t / p }'
