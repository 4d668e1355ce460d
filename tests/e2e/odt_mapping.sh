#!/usr/bin/env bash
# nomsoi odt --mapping writes Mapping.xml into the output directory; without a generator the
# identifier cache is empty, so the document is the root element with its schema alone.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"

status=0
"$NOMSOI" --log-format raw --log "$WORK/log" odt --in "$in" --out "$out" --mapping \
  2>"$WORK/stderr" || status=$?
expect_status 0 "$status" "odt --mapping"

{
  odt_head "$in" "$out"
  odt_group Product 2
  odt_group Resource 1
  odt_group MP 1
  odt_group Context 1
  odt_relative_paths
  info 0 'GenerateMappingXML -->'
  info 0 '<-- GenerateMappingXML'
  info 0 '<<- DumpVGXPackage_ODT '
} >"$WORK/expected.log"
module_lines "$WORK/log" >"$WORK/actual.log"
expect_same "module log" "$WORK/expected.log" "$WORK/actual.log"

tree_of "$out" >"$WORK/tree"
printf '%sMapping.xml\n' "$ODT_TREE" | LC_ALL=C sort >"$WORK/expected.tree"
expect_same "output directory" "$WORK/expected.tree" "$WORK/tree"
# The element tree alone: the declaration and the layout are the writer's business.
sed 's/<?xml[^>]*?>//' "$out/Mapping.xml" | tr -d ' \t\r\n' >"$WORK/tree.xml"
grep -qxE '<RootSchema="2"/>|<RootSchema="2"></Root>' "$WORK/tree.xml" ||
  fail "Mapping.xml is not a lone <Root Schema=\"2\"/>: $(cat "$out/Mapping.xml")"
echo "odt_mapping: ok"
