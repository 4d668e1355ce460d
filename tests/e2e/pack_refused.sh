#!/usr/bin/env bash
# nomsoi pack refuses, with exit status 2 and a message naming the path, what it can tell is
# wrong before the module runs: a missing main document, malformed XML in the main document or
# the view file, an output directory that cannot be created. Nothing is written.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
main="$ex/package/SOI.vgxXml"
view="$ex/package/SOI.vgxView"
out="$WORK/out"

# run_refused NAME EXPECTED_STDERR ARGS...: exit 2, exactly that message, nothing written.
run_refused() {
  local name=$1 message=$2 status=0
  shift 2
  "$NOMSOI" --log-format raw --log "$WORK/$name.log" pack "$@" 2>"$WORK/$name.err" || status=$?
  expect_status 2 "$status" "$name"
  expect_text "$name: standard error" "$message
" "$WORK/$name.err"
  [ -z "$(module_lines "$WORK/$name.log")" ] || fail "$name: the module ran"
  [ ! -e "$WORK/out" ] || fail "$name: $WORK/out was created"
  diff -r "$NOMSOI_SOURCE_DIR/examples" "$ex" >&2 || fail "$name: the package was changed"
}

run_refused missing_main \
  "nomsoi pack: --main: '$ex/package/NoSuch.vgxXml' does not exist (expected an XML document)" \
  --main "$ex/package/NoSuch.vgxXml" --out "$out"
run_refused missing_folder \
  "nomsoi pack: --main: '$WORK/nowhere/SOI.vgxXml' does not exist (expected an XML document)" \
  --main "$WORK/nowhere/SOI.vgxXml" --out "$out"
run_refused directory_as_main \
  "nomsoi pack: --main: '$ex/package' is a directory (expected an XML document)" \
  --main "$ex/package" --out "$out"

printf '<?xml version="1.0"?>\n<VgxDocument>\n  <CLitAssyGroup Ident="ProductList">\n' \
  >"$WORK/broken.vgxXml"
cp "$WORK/broken.vgxXml" "$WORK/broken.copy"
run_refused malformed_main \
  "nomsoi pack: --main: '$WORK/broken.vgxXml' is not well-formed XML: element 'CLitAssyGroup' is not closed at line 3, column 3 (expected an XML document)" \
  --main "$WORK/broken.vgxXml" --out "$out"
cmp "$WORK/broken.copy" "$WORK/broken.vgxXml" || fail "the malformed main document was changed"
run_refused malformed_view \
  "nomsoi pack: --view: '$WORK/broken.vgxXml' is not well-formed XML: element 'CLitAssyGroup' is not closed at line 3, column 3 (expected an XML document)" \
  --main "$main" --view "$WORK/broken.vgxXml" --out "$out"
run_refused missing_view \
  "nomsoi pack: --view: '$ex/package/NoSuch.vgxView' does not exist (expected an XML document)" \
  --main "$main" --view "$ex/package/NoSuch.vgxView" --out "$out"

# An output directory below a regular file cannot be created; a regular file is no directory.
echo "not a directory" >"$WORK/plain"
status=0
"$NOMSOI" --log-format raw --log "$WORK/under_file.log" pack --main "$main" \
  --out "$WORK/plain/out" 2>"$WORK/under_file.err" || status=$?
expect_status 2 "$status" "out below a file"
grep -qx "nomsoi pack: --out: directory '$WORK/plain/out' cannot be created: .*" \
  "$WORK/under_file.err" || fail "out below a file: $(cat "$WORK/under_file.err")"
[ -z "$(module_lines "$WORK/under_file.log")" ] || fail "out below a file: the module ran"
diff -r "$NOMSOI_SOURCE_DIR/examples" "$ex" >&2 || fail "out below a file: the package was changed"
run_refused out_is_file \
  "nomsoi pack: --out: '$WORK/plain' exists and is not a directory" \
  --main "$main" --out "$WORK/plain"

# A missing required option is a usage error.
run_refused no_out "--out is required
Run with --help for more information." --main "$main"
echo "pack_refused: ok"
