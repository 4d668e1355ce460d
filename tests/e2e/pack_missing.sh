#!/usr/bin/env bash
# nomsoi pack when parts of the package are missing or a target cannot be written: a missing
# product document, a missing geometry file referenced twice, a read-only target reached through
# nested references. Every problem is logged and the walk goes on; since a copy failed, the exit
# status is 1 and the main document is put back as it was.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
out="$WORK/out"
w=$(winpath "$ex")
rm "$ex/library/resources/Robot.vgxXml" "$ex/library/Wheel.vgxGeom"
mkdir "$out"
cp "$ex/library/parts/Bolt.vgxXml" "$out/Bolt.vgxXml"
echo '<!-- an older copy -->' >>"$out/Bolt.vgxXml"
cp "$out/Bolt.vgxXml" "$WORK/old-bolt"
chmod 444 "$out/Bolt.vgxXml"

run_host "$WORK/log" pack --main "$ex/package/SOI.vgxXml" --out "$out"
expect_status 1 "$status" "pack with a failed copy"
expect_grep "summary" "; 2 missing, 2 failed; output $out; module result 0x00000000" "$WORK/stderr"

# Nested copies name the SOI directory as it was given, followed by a backslash.
bolt_error="Copying File. Source Path: '$w\\library\\parts\\Bolt.vgxXml'. Target Path: '$out\\Bolt.vgxXml'. Error Code: Access Denied"
{
  group_start 1 Product
  info 0 'Nb Child Nodes: 2'
  error 0 "$bolt_error"
  group_done 1 Product
  group_start 1 Resource
  info 0 'Nb Child Nodes: 1'
  info 0 "Unable to open Document - $w\\library\\resources\\Robot.vgxXml"
  group_done 1 Resource
  group_start 1 MP
  info 0 'Nb Child Nodes: 1'
  info 0 "Unable to open Document - $w\\library\\Wheel.vgxGeom"
  info 0 "Unable to open Document - $w\\library\\Wheel.vgxGeom"
  error 0 "$bolt_error"
  group_done 1 MP
  group_start 1 Context
  info 0 'Nb Child Nodes: 1'
  error 0 "$bolt_error"
  group_done 1 Context
  relative_path_lines
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"

tree_of "$out" >"$WORK/tree"
expect_text "SOI directory" "Axle.vgxGeom
Axle.vgxXml
Bolt.vgxGeom
Bolt.vgxXml
Cart.vgxGeom
Cart.vgxXml
Cell.vgxGeom
Cell.vgxXml
Drive.vgxGeom
Drive.vgxXml
Frame.vgxGeom
Frame.vgxXml
GEAR.vgxGeom
GEAR.vgxXml
Line.png
Wheel.vgxXml
" "$WORK/tree"
cmp "$WORK/old-bolt" "$out/Bolt.vgxXml" || fail "the read-only Bolt.vgxXml was changed"

# A copy failed: the main document, which the module rewrote, is put back as it was.
cmp "$NOMSOI_SOURCE_DIR/examples/package/SOI.vgxXml" "$ex/package/SOI.vgxXml" ||
  fail "the main document was not put back"
[ ! -e "$out/.nomsoi-journal" ] || fail "the journal was left behind"
echo "pack_missing: ok"
