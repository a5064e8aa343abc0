#!/usr/bin/env bash
# Installs what is missing and builds everything: the library, the tests and
# the benchmarks (build/).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default
cmake --build --preset default
