#!/usr/bin/env bash
# Pack & Go never writes outside the output directory: a symbolic link standing in the output
# directory is replaced, not written through; a reference whose target name Windows would refuse
# ("Y:s.vgxXml", a colon after the drive) fails with the module's own copy-error line and writes
# nothing outside; with --out elsewhere the input package stays untouched.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

lib="$WORK/lib"
pkg="$WORK/pkg"
out="$WORK/out"

# A link in the output directory pointing at a file outside it.
product "$lib/Part.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\Part.vgxXml'
mkdir -p "$out"
echo 'precious' >"$WORK/precious"
ln -s "$WORK/precious" "$out/Part.vgxXml"
ln -s "$WORK/precious" "$out/Part.vgxGeom"
checksums "$lib" >"$WORK/lib.before"
checksums "$pkg" >"$WORK/pkg.before"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$out"
expect_status 0 "$status" "links in the output"
[ "$(cat "$WORK/precious")" = precious ] || fail "the file behind the link was written"
[ ! -L "$out/Part.vgxXml" ] && [ ! -L "$out/Part.vgxGeom" ] || fail "the links were followed"
cmp "$lib/Part.vgxGeom" "$out/Part.vgxGeom" || fail "Part.vgxGeom not copied"
checksums "$lib" >"$WORK/lib.after"
checksums "$pkg" >"$WORK/pkg.after"
expect_same "--out elsewhere: the library" "$WORK/lib.before" "$WORK/lib.after"
expect_same "--out elsewhere: the package" "$WORK/pkg.before" "$WORK/pkg.after"
attribute_values "$out/SOI.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "the packed main document" "Part.vgxXml
" "$WORK/refs"

# "Y:s.vgxXml" with Y: mapped: the source is found, the target "<out>Y:s.vgxXml" is refused.
rm -rf "$lib" "$pkg" "$out"
mkdir -p "$WORK/y" "$out"
product "$WORK/y/s.vgxXml"
main_document "$pkg/SOI.vgxXml" 'Y:s.vgxXml'
checksums "$WORK" >"$WORK/before"
run_host "$WORK/y.log" --drive "Y=$WORK/y" pack --main "$pkg/SOI.vgxXml" --out "$pkg"
expect_status 1 "$status" "Y:s.vgxXml"
wp=$(winpath "$pkg")
{
  group_start 1 Product
  info 0 'Nb Child Nodes: 1'
  error 0 "Copying File. Source Path: 'Y:s.vgxXml'. Target Path: '${wp}Y:s.vgxXml'. Error Code: Unknown"
  error 0 "Copying File. Source Path: 'Y:s.vgxGeom'. Target Path: '${wp}Y:s.vgxGeom'. Error Code: Unknown"
  group_done 1 Product
  relative_path_lines
} >"$WORK/expected.log"
expect_module_log "Y:s.vgxXml: module log" "$WORK/y.log"
[ ! -e "${pkg}Y:s.vgxXml" ] && [ ! -e "${pkg}Y:s.vgxGeom" ] || fail "written outside the package"
expect_grep "Y:s.vgxXml" "Windows error 123 (invalid file name)" "$WORK/stderr"
echo "pack_output_safety: ok"
