#!/usr/bin/env bash
# Cross-builds the CPU converters and their tests for AArch64 (build-aarch64)
# and runs the tests under qemu-user. Installs what is missing first
# (install-deps.sh: the cross compiler, qemu-user, GoogleTest's sources).
# Exits non-zero if configuring, building or any test fails, or if the tests
# did not run on the NEON row functions.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build-aarch64}
sysroot=/usr/aarch64-linux-gnu

"$root/scripts/install-deps.sh"

cmake -S "$root" -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DPOSTEFFECT_CONVERTERS_ONLY=ON \
    -DPOSTEFFECT_BUILD_TESTS=ON
cmake --build "$build" -j"${JOBS:-2}"

cd "$build"
ctest --output-on-failure --no-tests=error

# Say which row functions the frame functions ran on, and insist on NEON.
path=$(qemu-aarch64 -L "$sysroot" tests/convert/test_convert \
    --gtest_filter='ConvertActiveRows.*:ConvertSimdRows.EachMatchesItsPortableTwin' |
    grep -E '^\[ +(path|variants) +\]')
echo "$path"
if ! grep -q 'use the NEON row functions' <<<"$path"; then
    echo "check-aarch64: the tests did not run on the NEON row functions" >&2
    exit 1
fi
echo "check-aarch64: all converter tests passed on AArch64 (NEON)"
