#!/usr/bin/env bash
# nomsoi odt without --in takes the package directory from ADL_ODT_IN, here written with
# backslashes as a Windows host would set it; the input line shows it as it is.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in=$(winpath "$WORK/ex/odt")
out="$WORK/out"

status=0
ADL_ODT_IN="$in" "$NOMSOI" --log-format raw --log "$WORK/log" odt --out "$out" \
  2>"$WORK/stderr" || status=$?
expect_status 0 "$status" "odt with ADL_ODT_IN"

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
tree_of "$out" >"$WORK/tree"
expect_text "output directory" "$ODT_TREE" "$WORK/tree"
echo "odt_env: ok"
