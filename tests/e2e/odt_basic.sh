#!/usr/bin/env bash
# nomsoi odt with --in written with forward slashes, without the mapping: the driver's lines, the
# copies in the output directory with their references rewritten, the package's own references
# kept, no Mapping.xml.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"

status=0
"$NOMSOI" --log-format raw --log "$WORK/log" odt --in "$in" --out "$out" 2>"$WORK/stderr" ||
  status=$?
expect_status 0 "$status" "odt"
expect_text "standard error" "" "$WORK/stderr"

{
  odt_head "$in" "$out"
  odt_group Product 2
  odt_group Resource 1
  odt_group MP 1
  odt_group Context 1
  odt_relative_paths
  info 0 'Generation of MappingXML skipped - Env not set'
  info 0 '<<- DumpVGXPackage_ODT '
} >"$WORK/expected.log"
module_lines "$WORK/log" >"$WORK/actual.log"
expect_same "module log" "$WORK/expected.log" "$WORK/actual.log"
expect_no_service_errors "$WORK/log"

tree_of "$out" >"$WORK/tree"
expect_text "output directory" "$ODT_TREE" "$WORK/tree"
cmp "$in/NOMZUBVGXExtractTest/parts/Pump.vgxGeom" "$out/Pump.vgxGeom" || fail "Pump.vgxGeom differs"

# The ODT mode leaves the package's references as they were and rewrites those of the copies.
attribute_values "$in/NOMZUBVGXExtractTest/SOI.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "package references" "$ODT_MAIN_REFS" "$WORK/refs"
attribute_values "$out/Pump.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Pump references" "
Housing.vgxXml
Shaft.vgxXml
" "$WORK/refs"
attribute_values "$out/Housing.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Housing references" "
Seal.vgxXml
" "$WORK/refs"
echo "odt_basic: ok"
