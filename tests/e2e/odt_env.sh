#!/usr/bin/env bash
# nomsoi odt without --in takes the package directory from ADL_ODT_IN, here written with
# backslashes as a Windows host would set it; the input line shows it as it is.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in=$(winpath "$WORK/ex/odt")
out="$WORK/out"

ADL_ODT_IN="$in" run_host "$WORK/log" odt --out "$out"
expect_status 0 "$status" "odt with ADL_ODT_IN"

{
  odt_head "$in" "$out"
  example_groups 0
  odt_tail_without_mapping
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"
tree_of "$out" >"$WORK/tree"
expect_text "output directory" "$ODT_OUT_TREE" "$WORK/tree"
echo "odt_env: ok"
