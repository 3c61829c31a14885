#!/usr/bin/env bash
# Installs the build as a package would (prefix /usr, DESTDIR a temporary
# folder) and checks it:
#   layout    the files and links are where they belong and nothing else is
#             installed; the installed plotvik-cli records the installed demo
#             project from another folder, and knows its installed user guide;
#   validate  the desktop entry, the AppStream metadata and the MIME type pass
#             their validators (exit 77, skipped, when these are absent).
# Usage: check-install.sh BUILD_DIR layout|validate
set -euo pipefail
build="$1"
mode="$2"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

DESTDIR="$root/dest" cmake --install "$build" --prefix /usr >/dev/null
usr="$root/dest/usr"
app_id=com.norvex.Plotvik

if [ "$mode" = validate ]; then
  missing=()
  for tool in desktop-file-validate appstreamcli update-mime-database; do
    command -v "$tool" >/dev/null || missing+=("$tool")
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "not installed: ${missing[*]} (scripts/install-deps.sh installs them)"
    exit 77
  fi
  desktop-file-validate "$usr/share/applications/$app_id.desktop"
  appstreamcli validate --no-net "$usr/share/metainfo/$app_id.metainfo.xml"
  update-mime-database "$usr/share/mime"
  grep -q '^50:application/x-plotvik-project:\*\.plotvik$' "$usr/share/mime/globs2" ||
    fail "the MIME database does not map *.plotvik to application/x-plotvik-project"
  echo "desktop entry, metadata and MIME type validate"
  exit 0
fi

# The private folder holds the programs, the probe library and links to the
# demo firmware and script the library runs by default; bin/ links into it.
private=
for dir in "$usr"/lib/*/plotvik "$usr"/lib/plotvik; do
  [ -d "$dir" ] && private="${dir#"$usr"/}"
done
[ -n "$private" ] || fail "no private folder lib/.../plotvik"
expected="demo.TarvoScript demo.elf libTarvo_x64.so plotvik plotvik-cli"
[ "$(cd "$usr/$private" && ls | xargs)" = "$expected" ] ||
  fail "$private holds [$(cd "$usr/$private" && ls | xargs)], expected [$expected]"
for program in plotvik plotvik-cli; do
  link="$usr/bin/$program"
  [ -L "$link" ] || fail "bin/$program is not a link"
  case "$(readlink "$link")" in /*) fail "bin/$program is an absolute link";; esac
  [ "$(readlink -f "$link")" = "$(readlink -f "$usr/$private/$program")" ] || fail "bin/$program points elsewhere"
  [ -x "$usr/$private/$program" ] || fail "$program is not executable"
  if readelf -d "$usr/$private/$program" | grep -qE 'RPATH|RUNPATH'; then
    fail "$program carries an RPATH"
  fi
done
for f in demo.elf demo.TarvoScript; do
  [ -f "$usr/$private/$f" ] || fail "$private/$f does not lead to the demo's file"
done
[ "$(find "$root/dest" -path "$usr" -prune -o -print | xargs)" = "$root/dest" ] || fail "files outside usr/"
[ -z "$(find "$usr" -name 'test_*' -o -name '*bench*' -o -name corpus -o -name '*.a' -o -name '*.praw')" ] ||
  fail "tests, benchmarks or the corpus are installed"

data="$usr/share/plotvik"
for f in examples/demo/demo_bsq.plotvik examples/demo/demo_qtx.plotvik examples/demo/demo_gdb.plotvik \
         examples/demo/demo.TarvoScript examples/demo/demo.elf examples/demo/demo_mps2_an386.elf \
         guide/index.md qtx/qtx.h qtx/qtx.c; do
  [ -f "$data/$f" ] || fail "share/plotvik/$f is missing"
done
for f in man/man1/plotvik.1.gz man/man1/plotvik-cli.1.gz doc/plotvik/copyright doc/plotvik/changelog.gz \
         applications/$app_id.desktop metainfo/$app_id.metainfo.xml mime/packages/$app_id.xml \
         icons/hicolor/scalable/apps/$app_id.svg icons/hicolor/48x48/apps/$app_id.png; do
  [ -f "$usr/share/$f" ] || fail "share/$f is missing"
done

# From another folder, with a configuration of its own, through the link.
work="$root/elsewhere"
mkdir -p "$work/home"
cd "$work"
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config"
"$usr/bin/plotvik-cli" --help | grep -qF "$data/guide/index.md" ||
  fail "plotvik-cli --help does not name the installed user guide"
"$usr/bin/plotvik-cli" record "$data/examples/demo/demo_bsq.plotvik" --seconds 2 --csv out.csv
[ "$(head -n 1 out.csv)" = "Timestamp;g_tick_ms;g_sine;g_cosine;g_sawtooth;g_square;g_state;g_motor.speed_rpm;g_channels[1].raw" ] ||
  fail "unexpected CSV header: $(head -n 1 out.csv)"
rows=$(($(wc -l <out.csv) - 1))
[ "$rows" -ge 100 ] || fail "only $rows records in 2 s"
echo "installed layout is right; the installed plotvik-cli recorded $rows records"
