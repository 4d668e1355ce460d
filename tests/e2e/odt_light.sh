#!/usr/bin/env bash
# nomsoi odt --light: the package is neither opened nor saved, nothing is copied, the output
# directory is created empty, and the relative-path lines still appear.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
in="$WORK/ex/odt"
out="$WORK/out"

run_host "$WORK/log" odt --in "$in" --out "$out" --light
expect_status 0 "$status" "odt --light"

{
  odt_head "$in" "$out"
  info 0 'Pack & Go Light Mode Requested. Pointed geometry (*.vgxXml + *.vgxGeom) will NOT be copied to SOI directory.'
  odt_tail_without_mapping
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"

[ -d "$out" ] || fail "the output directory was not created"
expect_text "output directory" "" <(tree_of "$out")
diff -r "$NOMSOI_SOURCE_DIR/examples/odt" "$in" >&2 || fail "the package was changed"
echo "odt_light: ok"
