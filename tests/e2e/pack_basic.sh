#!/usr/bin/env bash
# nomsoi pack over the example package: exit status, the module's log lines, the SOI directory,
# the packed main document and view file saved into it while the package is left untouched, and
# a pack into the package's own directory.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
out="$WORK/out"
main="$ex/package/SOI.vgxXml"
view="$ex/package/SOI.vgxView"

run_host "$WORK/log" pack --main "$main" --view "$view" --out "$out"
expect_status 0 "$status" "pack"

# The summary alone, and no progress line in a file.
bytes=$(grep -o ' [0-9]* bytes copied' "$WORK/stderr" | tr -dc 0-9)
expect_text "standard error" \
  "nomsoi pack: 9 documents, 9 geometry files, 1 resources, $bytes bytes copied; 0 missing, 0 failed; output $out; module result 0x00000000
" "$WORK/stderr"

{
  example_groups 1
  relative_path_lines
} >"$WORK/expected.log"
expect_module_log "module log" "$WORK/log"
expect_no_service_errors "$WORK/log"

# Every product document and geometry file, however deep, lands flat in the SOI directory; the
# letter-case mismatch GEAR.vgxXml -> Gear.vgxXml keeps the name as referenced.
tree_of "$out" >"$WORK/tree"
# What Pack & Go gathers from the example package.
gathered="Axle.vgxGeom
Axle.vgxXml
Bolt.vgxGeom
Bolt.vgxXml
Cart.vgxGeom
Cart.vgxXml
Cell.vgxGeom
Cell.vgxXml
Drive.vgxGeom
Drive.vgxXml
Frame.vgxGeom
Frame.vgxXml
GEAR.vgxGeom
GEAR.vgxXml
Line.png
Robot.vgxGeom
Robot.vgxXml
Wheel.vgxGeom
Wheel.vgxXml
"
expect_text "SOI directory" "$(printf '%sSOI.vgxView\nSOI.vgxXml\n' "$gathered" | LC_ALL=C sort)
" "$WORK/tree"
cmp "$ex/library/drive/Gear.vgxGeom" "$out/GEAR.vgxGeom" || fail "GEAR.vgxGeom is not Gear.vgxGeom"
cmp "$ex/library/thumbs/Line.png" "$out/Line.png" || fail "Line.png is not the thumbnail"

# The main document and the view file lie outside the SOI directory: they are left as they were,
# and the packed ones, naming bare files, are saved into it.
diff -r "$NOMSOI_SOURCE_DIR/examples/package" "$ex/package" >&2 || fail "the package was changed"
main="$out/SOI.vgxXml"
view="$out/SOI.vgxView"
attribute_values "$main" IsInstanceOf >"$WORK/refs"
expect_text "main references" "Frame.vgxXml
Drive.vgxXml
Robot.vgxXml
Cart.vgxXml
Cell.vgxXml
" "$WORK/refs"
attribute_values "$main" File >"$WORK/refs"
expect_text "main resources" "Line.png
" "$WORK/refs"
attribute_values "$view" File >"$WORK/refs"
expect_text "view resources" "Line.png
" "$WORK/refs"
attribute_values "$view" Document >"$WORK/refs"
expect_text "view document" "SOI.vgxXml
" "$WORK/refs"

# The copies refer to each other by bare names (the product's own group gets an empty reference).
attribute_values "$out/Cart.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Cart references" "
Wheel.vgxXml
Wheel.vgxXml
Axle.vgxXml
" "$WORK/refs"
attribute_values "$out/Drive.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Drive references" "
GEAR.vgxXml
Bolt.vgxXml
" "$WORK/refs"
attribute_values "$out/Cell.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Cell references" "
Bolt.vgxXml
" "$WORK/refs"
attribute_values "$out/Axle.vgxXml" IsInstanceOf >"$WORK/refs"
expect_text "Axle references" "
Bolt.vgxXml
" "$WORK/refs"

# The library itself is only read.
diff -r "$NOMSOI_SOURCE_DIR/examples/library" "$ex/library" >&2 || fail "the library was changed"

# Packing into the package's own directory, with relative paths: the package directory becomes
# self-contained.
rm -rf "$ex"
copy_examples
status=0
(cd "$ex" && "$NOMSOI" --log-format raw --log "$WORK/log2" pack --main ./package/SOI.vgxXml \
  --view ./package/SOI.vgxView --out ./package) 2>"$WORK/stderr" || status=$?
expect_status 0 "$status" "pack into the package directory"
expect_grep "standard error" "0 missing, 0 failed; output $ex/package; module result 0x00000000" "$WORK/stderr"
expect_module_log "module log" "$WORK/log2"
tree_of "$ex/package" >"$WORK/tree"
# Gathered into the package directory itself: beside what was already there.
expect_text "package directory" "$(printf '%sSOI.vgxView\nSOI.vgxXml\ncontext/Cell.vgxGeom\ncontext/Cell.vgxXml\n' "$gathered" | LC_ALL=C sort)
" "$WORK/tree"
for ref in $(attribute_values "$ex/package/SOI.vgxXml" IsInstanceOf); do
  [ -f "$ex/package/$ref" ] || fail "main document names $ref, which is not in the package"
done
echo "pack_basic: ok"
