#!/usr/bin/env bash
# Lines of C, C++ and headers under tests/ (fuzz harnesses included) against
# those outside it (bench/ and firmware/ count as code).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
count() {
  git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp)$' | tr '\n' '\0' | xargs -0 cat | wc -l
}
tests="$(count tests)"
code="$(count . ':!tests')"
echo "tests $tests lines, code $code lines: $((100 * tests / code)) %"
