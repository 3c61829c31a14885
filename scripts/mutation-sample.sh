#!/usr/bin/env bash
# Mutation sample: applies each single-token change of a mutant list, one at a
# time, builds, runs every test, and counts the mutants some test kills (a
# failing or timed-out test). A mutant that does not build is not counted.
#
#   scripts/mutation-sample.sh [MUTANT_FILE] [FIRST] [LAST]
#
# The list (default scripts/mutants.txt) has one mutant a line:
#   path | text as it stands | text to put in its place | what the change does
# The text must occur exactly once in the file. Builds into build-mutants/
# (or $PLOTVIK_BUILD_DIR); the source is restored after each mutant, also when
# the script is interrupted. Results go to <build>/mutants.log.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
list="${1:-$root/scripts/mutants.txt}"
first="${2:-1}"
last="${3:-100000}"
build="${PLOTVIK_BUILD_DIR:-$root/build-mutants}"
log="$build/mutants.log"

PLOTVIK_BUILD_DIR="$build" "$root/scripts/build.sh" >/dev/null

current=""
backup=""
restore() {
  if [ -n "$current" ]; then
    cp -p "$backup" "$current"
    current=""
  fi
}
trap restore EXIT INT TERM
backup="$(mktemp)"

killed=0 survived=0 stillborn=0 n=0
: >"$log"
while IFS= read -r entry; do
  case "$entry" in ''|'#'*) continue ;; esac
  n=$((n + 1))
  [ "$n" -lt "$first" ] || [ "$n" -gt "$last" ] && continue
  IFS='|' read -r path from to what <<<"$entry"
  path="$(echo "$path" | xargs)"; from="${from# }"; from="${from% }"; to="${to# }"; to="${to% }"; what="${what# }"
  file="$root/$path"
  count="$(grep -cF -- "$from" "$file" || true)"
  if [ "$count" != 1 ]; then
    echo "mutant $n: \"$from\" occurs $count times in $path" | tee -a "$log" >&2
    exit 2
  fi
  cp -p "$file" "$backup"
  current="$file"
  FROM="$from" TO="$to" python3 - "$file" <<'PY'
import os, sys
p = sys.argv[1]
s = open(p, encoding="utf-8").read()
open(p, "w", encoding="utf-8").write(s.replace(os.environ["FROM"], os.environ["TO"], 1))
PY
  if ! cmake --build "$build" --parallel "$(nproc)" >"$build/mutant-build.log" 2>&1; then
    result="stillborn"; stillborn=$((stillborn + 1))
  elif (cd "$build" && QT_QPA_PLATFORM=offscreen ctest --timeout 300 -j "$(nproc)" --stop-on-failure \
          >"$build/mutant-test.log" 2>&1); then
    result="SURVIVED"; survived=$((survived + 1))
  else
    result="killed by $(grep -m1 -oE '[0-9]+ - [A-Za-z0-9_./-]+ \((Failed|Timeout|SEGFAULT|Subprocess aborted|Child aborted|Exception)' \
                        "$build/mutant-test.log" | sed -E 's/^[0-9]+ - //')"
    killed=$((killed + 1))
  fi
  restore
  printf 'mutant %d %s: %s\n' "$n" "$path" "$what -> $result" | tee -a "$log"
done <"$list"
# Rebuild the unmutated tree so the build folder matches the sources again.
cmake --build "$build" --parallel "$(nproc)" >/dev/null

total=$((killed + survived))
echo "killed $killed of $total mutants that built ($stillborn did not build)" | tee -a "$log"
if [ "$total" -gt 0 ]; then
  echo "kill rate: $((100 * killed / total)) %" | tee -a "$log"
fi
