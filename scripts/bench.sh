#!/usr/bin/env bash
# Builds the benchmarks in Release (build-release/) and runs them all.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset release
cmake --build --preset release
for b in build-release/bench/bench_*; do
    [ -x "$b" ] || continue
    echo "=== $b"
    "$b" "$@"
done
