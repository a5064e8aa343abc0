#!/usr/bin/env bash
# Lines of test code against lines of code: *.cpp and *.h under tests/, and
# under plugin/, gl/, engine/, effects/, platform/, tools/ and include/, as
# git tracks them. The tests are to stay at most 0.40 of the code.
#
#     scripts/test-ratio.sh            # prints the two counts and the ratio
#     scripts/test-ratio.sh --check    # also fails when the ratio passes 0.40
set -euo pipefail
cd "$(dirname "$0")/.."

lines() {
    git ls-files -- "$@" | grep -E '\.(cpp|h)$' | tr '\n' '\0' | xargs -0 -r cat | wc -l
}

code=$(lines plugin gl engine effects platform tools include)
tests=$(lines tests)
ratio=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.2f", c ? t / c : 0 }')
echo "code lines:  $code"
echo "test lines:  $tests"
echo "ratio:       $ratio"
if [ "${1:-}" = "--check" ] && awk -v r="$ratio" 'BEGIN { exit !(r > 0.40) }'; then
    echo "the tests are more than 0.40 of the code" >&2
    exit 1
fi
