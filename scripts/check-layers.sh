#!/usr/bin/env bash
# Checks that every #include "folder/..." goes to the same or a lower layer
# (the order below, lowest first), that base/ includes nothing of ours outside
# itself, and that the probe library reaches the program only through the
# probe API header. Prints each offending line; exits 1 if there is one.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

declare -A rank=([base]=0 [symbols]=1 [probe]=2 [files]=3 [app]=4 [view]=5 [gui]=6 [cli]=6)
# What the separate probe library (sim/) may use of the program.
sim_allowed='^(base/|probe/TarvoApi\.h$|sim/)'

bad=0
while IFS= read -r -d '' file; do
  from="${file%%/*}"
  while IFS=: read -r line target; do
    to="${target%%/*}"
    ok=1
    if [ "$from" = sim ]; then
      [[ "$target" =~ $sim_allowed ]] || ok=0
    elif [ -n "${rank[$from]:-}" ]; then
      if [ -z "${rank[$to]:-}" ]; then
        ok=0
      elif [ "$from" = base ] && [ "$to" != base ]; then
        ok=0
      elif [ "${rank[$to]}" -gt "${rank[$from]}" ]; then
        ok=0
      elif [ "${rank[$to]}" -eq "${rank[$from]}" ] && [ "$to" != "$from" ]; then
        ok=0  # gui and cli are siblings on top: neither uses the other
      fi
    fi
    if [ "$ok" = 0 ]; then
      echo "$file:$line: includes \"$target\""
      bad=1
    fi
  done < <(grep -noE '^[[:space:]]*#[[:space:]]*include[[:space:]]+"[a-z]+/[^"]+"' "$file" |
           sed -E 's/^([0-9]+):.*"([^"]+)"$/\1:\2/')
done < <(find base symbols probe files app view gui cli sim -type f \( -name '*.h' -o -name '*.cpp' \) -print0 2>/dev/null)

if [ "$bad" = 0 ]; then
  echo "Layers: every include goes to the same or a lower layer."
fi
exit "$bad"
