#!/usr/bin/env bash
# nomsoi pack exits 1 and prints the code when the module's result is negative: the last product
# document copied refers to nothing, so its relative-path update fails with E_FAIL.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
out="$WORK/out"
printf '<?xml version="1.0" encoding="UTF-8"?>\n<VgxDocument Product="Bolt"/>\n' \
  >"$ex/library/parts/Bolt.vgxXml"

status=0
"$NOMSOI" --log-format raw --log "$WORK/log" pack --main "$ex/package/SOI.vgxXml" --out "$out" \
  2>"$WORK/stderr" || status=$?
expect_status 1 "$status" "pack"
grep -v '^nomsoi pack: warning: ' "$WORK/stderr" >"$WORK/errors" || true
expect_text "standard error" "nomsoi pack: failed with result 0x80004005
" "$WORK/errors"

# The walk itself went through: every list was handled and Bolt was copied.
module_lines "$WORK/log" | grep -c "Done!" >"$WORK/count"
expect_text "lists handled" "4
" "$WORK/count"
cmp "$ex/library/parts/Bolt.vgxXml" "$out/Bolt.vgxXml" || fail "Bolt.vgxXml not copied unchanged"
echo "pack_result: ok"
