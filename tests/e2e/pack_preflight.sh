#!/usr/bin/env bash
# nomsoi pack refuses, before anything is written, packages it cannot pack safely: reference
# cycles (of 2 and of 5 documents, a self-reference) named as a chain, two different files that
# would land on one name (unless --force), more visits or deeper nesting than the limits. A dry
# run prints the plan and writes nothing.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

lib="$WORK/lib"
pkg="$WORK/pkg"
wl=$(winpath "$lib")

# refused NAME MESSAGE ARGS...: exit 2, the message on standard error, nothing written.
refused() {
  local name=$1 message=$2
  shift 2
  checksums "$lib" >"$WORK/.before"
  checksums "$pkg" >>"$WORK/.before"
  run_host "$WORK/.log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" "$@"
  expect_status 2 "$status" "$name"
  expect_grep "$name" "$message" "$WORK/stderr"
  [ ! -e "$WORK/out" ] || fail "$name: the output directory was created"
  [ -z "$(module_lines "$WORK/.log")" ] || fail "$name: the module ran"
  checksums "$lib" >"$WORK/.after"
  checksums "$pkg" >>"$WORK/.after"
  expect_same "$name: files" "$WORK/.before" "$WORK/.after"
  rm -f "$WORK/.log"
}

reset() { rm -rf "$lib" "$pkg" "$WORK/out"; }

# A self-reference.
reset
product "$lib/A.vgxXml" 'A.vgxXml'
main_document "$pkg/SOI.vgxXml" '..\lib\A.vgxXml'
refused self "nomsoi pack: refused: reference cycle: '$wl\\A.vgxXml' -> '$wl\\A.vgxXml'"

# A cycle of two.
reset
product "$lib/A.vgxXml" 'B.vgxXml'
product "$lib/B.vgxXml" 'A.vgxXml'
main_document "$pkg/SOI.vgxXml" '..\lib\A.vgxXml'
refused cycle_of_2 "refused: reference cycle: '$wl\\A.vgxXml' -> '$wl\\B.vgxXml' -> '$wl\\A.vgxXml'"

# A cycle of five, entered below a document that is not part of it.
reset
product "$lib/Top.vgxXml" 'C1.vgxXml'
for i in 1 2 3 4; do product "$lib/C$i.vgxXml" "C$((i + 1)).vgxXml"; done
product "$lib/C5.vgxXml" 'C1.vgxXml'
main_document "$pkg/SOI.vgxXml" '..\lib\Top.vgxXml'
refused cycle_of_5 "refused: reference cycle: '$wl\\C1.vgxXml' -> '$wl\\C2.vgxXml' -> '$wl\\C3.vgxXml' -> '$wl\\C4.vgxXml' -> '$wl\\C5.vgxXml' -> '$wl\\C1.vgxXml'"

# Two different files on one name, compared without letter case.
reset
product "$lib/libA/Bolt.vgxXml"
product "$lib/libB/BOLT.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\libA\Bolt.vgxXml' '..\lib\libB\BOLT.vgxXml'
refused collision "refused: two different files would land on '$(winpath "$WORK/out")\\BOLT.vgxXml': '$wl\\libA\\Bolt.vgxXml' and '$wl\\libB\\BOLT.vgxXml'"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --force
expect_status 0 "$status" "collision with --force"
[ "$(ls "$WORK/out" | LC_ALL=C sort | tr "\n" " ")" = "Bolt.vgxGeom Bolt.vgxXml SOI.vgxXml " ] ||
  fail "--force: $(ls "$WORK/out")"

# Limits: a package 4 wide and 4 deep is followed 4 + 16 + 64 + 256 = 340 times, 4 deep.
reset
for level in 1 2 3; do product "$lib/L$level.vgxXml" L$((level + 1)).vgxXml L$((level + 1)).vgxXml L$((level + 1)).vgxXml L$((level + 1)).vgxXml; done
product "$lib/L4.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\L1.vgxXml' '..\lib\L1.vgxXml' '..\lib\L1.vgxXml' '..\lib\L1.vgxXml'
refused visits "refused: the package's references would be followed more than --max-visits 339 times" --max-visits 339
refused depth "refused: product documents nest deeper than --max-depth 3 below" --max-depth 3

# A dry run prints the plan and writes nothing.
checksums "$lib" >"$WORK/.before"
checksums "$pkg" >>"$WORK/.before"
status=0
"$NOMSOI" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --max-visits 340 --max-depth 4 --dry-run \
  >"$WORK/plan" 2>"$WORK/plan.err" || status=$?
expect_status 0 "$status" "dry run"
[ ! -e "$WORK/out" ] || fail "the dry run created the output directory"
checksums "$lib" >"$WORK/.after"
checksums "$pkg" >>"$WORK/.after"
expect_same "dry run: files" "$WORK/.before" "$WORK/.after"
wo=$(winpath "$WORK/out")
expect_text "dry run: plan" "copy document '$wl\\L1.vgxXml' -> '$wo\\L1.vgxXml'
copy geometry '$wl\\L1.vgxGeom' -> '$wo\\L1.vgxGeom'
copy document '$wl\\L2.vgxXml' -> '$WORK/out\\L2.vgxXml'
copy geometry '$wl\\L2.vgxGeom' -> '$WORK/out\\L2.vgxGeom'
copy document '$wl\\L3.vgxXml' -> '$WORK/out\\L3.vgxXml'
copy geometry '$wl\\L3.vgxGeom' -> '$WORK/out\\L3.vgxGeom'
copy document '$wl\\L4.vgxXml' -> '$WORK/out\\L4.vgxXml'
copy geometry '$wl\\L4.vgxGeom' -> '$WORK/out\\L4.vgxGeom'
" "$WORK/plan"
expect_grep "dry run: summary" "nomsoi pack: dry run: 4 documents, 4 geometry files, 0 resources," "$WORK/plan.err"
expect_grep "dry run: visits" "; 0 missing; 340 references followed; output $WORK/out; nothing written" "$WORK/plan.err"
echo "pack_preflight: ok"
