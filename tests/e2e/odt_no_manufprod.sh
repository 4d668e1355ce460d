#!/usr/bin/env bash
# nomsoi odt over a package without the "ManufProd" group: its two lines are missing, the other
# groups appear in order, and what only that group referenced is not copied.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"
package="$in/NOMZUBVGXExtractTest/SOI.vgxXml"
sed -i '/<CLitAssyGroup Ident="ManufProd"/,/^  <\/CLitAssyGroup>/d' "$package"
! grep -q ManufProd "$package" || fail "the ManufProd group is still there"

status=0
"$NOMSOI" --log-format raw --log "$WORK/log" odt --in "$in" --out "$out" 2>"$WORK/stderr" ||
  status=$?
expect_status 0 "$status" "odt"

{
  odt_head "$in" "$out"
  odt_group Product 2
  odt_group Resource 1
  odt_group Context 1
  odt_relative_paths
  info 0 'Generation of MappingXML skipped - Env not set'
  info 0 '<<- DumpVGXPackage_ODT '
} >"$WORK/expected.log"
module_lines "$WORK/log" >"$WORK/actual.log"
expect_same "module log" "$WORK/expected.log" "$WORK/actual.log"

tree_of "$out" >"$WORK/tree"
expect_text "output directory" "Floor.vgxGeom
Floor.vgxXml
Housing.vgxGeom
Housing.vgxXml
Seal.vgxGeom
Seal.vgxXml
Shaft.vgxGeom
Shaft.vgxXml
Stand.vgxGeom
Stand.vgxXml
" "$WORK/tree"
echo "odt_no_manufprod: ok"
