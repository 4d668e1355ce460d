#!/usr/bin/env bash
# nomsoi odt refuses to start, with exit status 2, when the package is not where the ODT mode
# looks for it; the message names the path and what ADL_ODT_IN holds. Nothing is created.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

out="$WORK/out"
mkdir "$WORK/empty"

# run_refused NAME EXPECTED_STDERR ARGS...
run_refused() {
  local name=$1 message=$2 status=0
  shift 2
  "$NOMSOI" --log-format raw --log "$WORK/$name.log" odt "$@" 2>"$WORK/$name.err" || status=$?
  expect_status 2 "$status" "$name"
  expect_text "$name: standard error" "$message
" "$WORK/$name.err"
  [ -z "$(module_lines "$WORK/$name.log")" ] || fail "$name: the module ran"
  [ ! -e "$out" ] || fail "$name: $out was created"
}

run_refused in_without_package \
  "nomsoi odt: the package '$WORK/empty\\NOMZUBVGXExtractTest\\SOI.vgxXml' does not exist (expected an XML document); ADL_ODT_IN holds '$WORK/empty' (set --in DIR to the directory that holds NOMZUBVGXExtractTest)" \
  --in "$WORK/empty" --out "$out"
run_refused unset \
  "nomsoi odt: the package '\\NOMZUBVGXExtractTest\\SOI.vgxXml' does not exist (expected an XML document); ADL_ODT_IN is not set (set --in DIR to the directory that holds NOMZUBVGXExtractTest)" \
  --out "$out"

mkdir -p "$WORK/broken/NOMZUBVGXExtractTest"
echo '<VgxDocument>' >"$WORK/broken/NOMZUBVGXExtractTest/SOI.vgxXml"
ADL_ODT_IN="$WORK/broken" run_refused malformed \
  "nomsoi odt: the package '$WORK/broken\\NOMZUBVGXExtractTest\\SOI.vgxXml' is not well-formed XML: element 'VgxDocument' is not closed at line 1, column 1 (expected an XML document); ADL_ODT_IN holds '$WORK/broken' (set --in DIR to the directory that holds NOMZUBVGXExtractTest)" \
  --out "$out"
echo "odt_missing: ok"
