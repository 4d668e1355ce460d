#!/usr/bin/env bash
# nomsoi pack says what the user got, not what the module returned: the last product document
# copied refers to nothing, so its relative-path update fails with E_FAIL and the module's result
# is negative, yet every file was copied: exit 0, the module's result shown in the summary.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
out="$WORK/out"
printf '<?xml version="1.0" encoding="UTF-8"?>\n<VgxDocument Product="Bolt"/>\n' \
  >"$ex/library/parts/Bolt.vgxXml"

run_host "$WORK/log" pack --main "$ex/package/SOI.vgxXml" --out "$out"
expect_status 0 "$status" "pack"
expect_grep "summary" "nomsoi pack: 9 documents, 9 geometry files, 1 resources, " "$WORK/stderr"
expect_grep "summary" " bytes copied; 0 missing, 0 failed; output $out; module result 0x80004005" \
  "$WORK/stderr"

# The walk itself went through: every list was handled and Bolt was copied.
module_lines "$WORK/log" | grep -c "Done!" >"$WORK/count"
expect_text "lists handled" "4
" "$WORK/count"
cmp "$ex/library/parts/Bolt.vgxXml" "$out/Bolt.vgxXml" || fail "Bolt.vgxXml not copied unchanged"
echo "pack_result: ok"
