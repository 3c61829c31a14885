#!/usr/bin/env bash
# Builds the fuzz harnesses with clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer into build-fuzz/ (or $PLOTVIK_FUZZ_BUILD_DIR) and
# runs each for SECONDS (default 60) from its seed corpus in tests/fuzz/corpus.
# Exits non-zero when any harness finds a crash, a leak, a time-out or runs
# out of memory; the input that did it is left in build-fuzz/artifacts/<name>/.
# Usage: scripts/fuzz.sh [SECONDS] [NAME...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PLOTVIK_FUZZ_BUILD_DIR:-$root/build-fuzz}"
seconds="${1:-60}"
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(elf project settings raw qtx_format qtx_stream)
fi

# The project's own packages and the fuzzing tool chain, which only this
# script needs.
"$root/scripts/install-deps.sh" clang libfuzzer-14-dev

# Without -Werror: clang warns about things gcc, the compiler the project
# builds with, does not; the normal build keeps the harnesses warning-free.
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DPLOTVIK_WERROR=OFF -DPLOTVIK_FUZZ=ON \
  -DPLOTVIK_TESTS=OFF -DPLOTVIK_BENCH=OFF -DPLOTVIK_FIRMWARE=OFF >/dev/null
cmake --build "$build" --target fuzz_all --parallel "$(nproc)"

# libdwarf is not instrumented: it asks for huge blocks when a section header
# lies about its size and copes with a null answer, so the allocator answers
# null instead of ending the run. A single allocation above the limit still
# counts as a failure, as does a run above the memory limit.
export ASAN_OPTIONS="allocator_may_return_null=1:detect_leaks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
failed=()
for name in "${targets[@]}"; do
  work="$build/corpus/$name"
  artifacts="$build/artifacts/$name"
  mkdir -p "$work" "$artifacts"
  echo "== fuzz_$name for ${seconds}s"
  # New inputs go to the build folder's corpus; the repository keeps the seeds.
  if ! "$build/fuzz/fuzz_$name" "$work" "$root/tests/fuzz/corpus/$name" \
      -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -malloc_limit_mb=2048 \
      -artifact_prefix="$artifacts/" -print_final_stats=1 >"$build/fuzz_$name.log" 2>&1; then
    failed+=("$name")
    tail -n 40 "$build/fuzz_$name.log"
  fi
  grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' "$build/fuzz_$name.log" || true
done

if [ ${#failed[@]} -gt 0 ]; then
  echo "Fuzzing found problems in: ${failed[*]} (inputs in $build/artifacts/)"
  exit 1
fi
echo "No crash, leak or time-out in: ${targets[*]}"
