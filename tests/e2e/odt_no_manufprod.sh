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

run_host "$WORK/log" odt --in "$in" --out "$out"
expect_status 0 "$status" "odt"

{
  odt_head "$in" "$out"
  odt_group Product 2
  odt_group Resource 1
  odt_group Context 1
  odt_tail_without_mapping
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"

tree_of "$out" >"$WORK/tree"
expect_text "output directory" "Floor.vgxGeom
Floor.vgxXml
Housing.vgxGeom
Housing.vgxXml
SOI.vgxXml
Seal.vgxGeom
Seal.vgxXml
Shaft.vgxGeom
Shaft.vgxXml
Stand.vgxGeom
Stand.vgxXml
" "$WORK/tree"
echo "odt_no_manufprod: ok"
