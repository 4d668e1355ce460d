#!/usr/bin/env bash
# nomsoi odt with --in written with forward slashes, without the mapping: the driver's lines, the
# copies in the output directory with their references rewritten, the package's own references
# kept, no Mapping.xml.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"

run_host "$WORK/log" odt --in "$in" --out "$out"
expect_status 0 "$status" "odt"
expect_grep "standard error" "nomsoi odt: 8 documents, 8 geometry files, 0 resources, " "$WORK/stderr"
expect_grep "standard error" " bytes copied; 0 missing, 0 failed; output $out
" "$WORK/stderr"

{
  odt_head "$in" "$out"
  example_groups 0
  odt_tail_without_mapping
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"
expect_no_service_errors "$WORK/log"

tree_of "$out" >"$WORK/tree"
expect_text "output directory" "$ODT_OUT_TREE" "$WORK/tree"
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
