#!/usr/bin/env bash
# Renders plotvik.svg into the PNG sizes installed beside it (hicolor theme).
# Run after changing the picture; needs rsvg-convert (Debian: librsvg2-bin).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
for size in 16 24 32 48 64 128 256; do
  rsvg-convert -w "$size" -h "$size" plotvik.svg -o "plotvik-$size.png"
done
