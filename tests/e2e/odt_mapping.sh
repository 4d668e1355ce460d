#!/usr/bin/env bash
# nomsoi odt --mapping writes Mapping.xml into the output directory; without a generator the
# identifier cache is empty, so the document is the root element with its schema alone.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"

run_host "$WORK/log" odt --in "$in" --out "$out" --mapping
expect_status 0 "$status" "odt --mapping"

{
  odt_head "$in" "$out"
  example_groups 0
  relative_path_lines
  info 0 'GenerateMappingXML -->'
  info 0 '<-- GenerateMappingXML'
  info 0 '<<- DumpVGXPackage_ODT '
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"

tree_of "$out" >"$WORK/tree"
printf '%sMapping.xml\n' "$ODT_OUT_TREE" | LC_ALL=C sort >"$WORK/expected.tree"
expect_same "output directory" "$WORK/expected.tree" "$WORK/tree"
# The element tree alone: the declaration and the layout are the writer's business.
sed 's/<?xml[^>]*?>//' "$out/Mapping.xml" | tr -d ' \t\r\n' >"$WORK/tree.xml"
grep -qxE '<RootSchema="2"/>|<RootSchema="2"></Root>' "$WORK/tree.xml" ||
  fail "Mapping.xml is not a lone <Root Schema=\"2\"/>: $(cat "$out/Mapping.xml")"
echo "odt_mapping: ok"
