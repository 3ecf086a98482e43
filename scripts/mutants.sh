#!/usr/bin/env bash
# Mutation sampler; see scripts/mutants.py for what it does and its options.
exec python3 "$(dirname "$0")/mutants.py" "$@"
