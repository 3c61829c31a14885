#!/usr/bin/env bash
# Regenerates the user guide's pictures (docs/guide/images/) from the program
# itself: the real windows on the simulated target under Xvfb, and the graph
# picture of `plotvik-cli record --png`. Not part of CI.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PLOTVIK_BUILD_DIR:-$root/build}"
out="$root/docs/guide/images"

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DPLOTVIK_WERROR=ON >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target plotvik-screenshots plotvik-cli

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/shots" "$work/home"
# A private home: the user's settings, recent projects and log stay untouched.
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config"
QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1600x1000x24" \
  "$build/bin/plotvik-screenshots" "$work/shots"
QT_QPA_PLATFORM=offscreen "$build/bin/plotvik-cli" record "$build/bin/examples/demo/demo_bsq.plotvik" \
  --seconds 3 --png "$work/shots/cli-record.png" >/dev/null

# Screenshots of flat widgets keep their look in 256 colours at a fraction of
# the size.
mkdir -p "$out"
for shot in "$work"/shots/*.png; do
  convert "$shot" -strip +dither -colors 256 "PNG8:$out/$(basename "$shot")"
done
ls -l "$out"
du -ch "$out"/*.png | tail -1
