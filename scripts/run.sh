#!/usr/bin/env bash
# Builds Plotvik and runs its main job: the demo project on the simulated
# target. Without a display it says so and records the demo headless instead.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PLOTVIK_BUILD_DIR:-$root/build}"
"$root/scripts/build.sh"
demo="$build/bin/examples/demo/demo_bsq.plotvik"
args=()
[ -f "$demo" ] && args=("$demo")
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "No display found (DISPLAY is not set)."
  if [ -f "$demo" ] && "$build/bin/plotvik-cli" record "$demo" --seconds 5 \
       --csv "$build/demo.csv" --png "$build/demo.png"; then
    echo "Recorded the demo headless: $build/demo.csv and $build/demo.png"
    exit 0
  fi
  echo "Starting Plotvik on the offscreen platform instead."
  export QT_QPA_PLATFORM=offscreen
fi
exec "$build/bin/plotvik" "${args[@]}"
