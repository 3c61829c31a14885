#!/usr/bin/env bash
# Records what `plotvik-cli symbols` lists for every ELF of the test corpus,
# the demo firmware and a generated firmware, as a SHA-256 and a line count
# per file (listings.sha256), plus the whole listing of two small files.
# Source and generated-folder paths are written as @SRC@ and @GEN@, so the
# figures hold in any checkout. Used once, on the tree that made every array
# element a node, to pin down what the listing must stay.
#   record-listings.sh BUILD_DIR OUT_DIR
set -euo pipefail
src="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../.." && pwd)"
build="$(cd "$1" && pwd)"
out="$2"
cli="$build/bin/plotvik-cli"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# The generated firmware, as tests/symbols/ListingTest.cpp builds it.
gen="$work/gen"
mkdir -p "$gen"
"$build/bin/listing_firmware" "$gen" 500 >/dev/null

list() {  # ELF NAME
    (cd "$work" && "$cli" symbols "$1" 2>/dev/null || true) | sed -e "s|$gen|@GEN@|g" -e "s|$src|@SRC@|g"
}
: >"$out/listings.sha256"
corpus="$build/tests/symbols/corpus"
{
    (cd "$corpus" && find . -name '*.elf' -o -name '*.o') | sed 's|^\./||' | sort | sed 's|^|corpus/|'
    echo bin/demo.elf
    echo bin/demo_mps2_an386.elf
    echo generated/big.elf
} | while read -r name; do
    case "$name" in
    corpus/*) path="$corpus/${name#corpus/}" ;;
    bin/*) path="$build/$name" ;;
    generated/*) path="$gen/${name#generated/}" ;;
    esac
    list "$path" >"$work/listing"
    printf '%s  %s  %s\n' "$(sha256sum <"$work/listing" | cut -d' ' -f1)" "$(wc -l <"$work/listing")" "$name" >>"$out/listings.sha256"
done
list "$corpus/shapes_c_dwarf4_O0.elf" >"$out/shapes_c_dwarf4_O0.txt"
list "$corpus/shapes_cpp_dwarf5_O0.elf" >"$out/shapes_cpp_dwarf5_O0.txt"
