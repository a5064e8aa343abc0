#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test.
#   scripts/test.sh            the host build (build/)
#   scripts/test.sh --sanitize the AddressSanitizer + UBSan build (build-asan/)
set -euo pipefail
cd "$(dirname "$0")/.."

preset=test
if [ "${1:-}" = "--sanitize" ]; then
    preset=asan
fi

scripts/install-deps.sh
cmake --workflow --preset "$preset"
