#!/usr/bin/env bash
# nomsoi pack --confine (and NOMZUB_CONFINE): a package that names anything whose real path lies
# outside the roots (through "..", a drive path, a symbolic link, /proc, a device, a shared
# resource) is refused before anything is written; a package inside the roots packs.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

root="$WORK/root"
pkg="$root/pkg"
mkdir -p "$WORK/secret"
echo 'secret' >"$WORK/secret/Key.vgxXml"

# refused NAME REFERENCE PATTERN [ENV...]: the package referring to REFERENCE is refused.
refused() {
  local name=$1 ref=$2 pattern=$3
  rm -rf "$root" "$WORK/out"
  product "$root/lib/Good.vgxXml"
  main_document "$pkg/SOI.vgxXml" '..\lib\Good.vgxXml' "$ref"
  checksums "$root" >"$WORK/before"
  run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --confine "$root"
  expect_status 2 "$status" "$name"
  expect_grep "$name" "$pattern" "$WORK/stderr"
  [ ! -e "$WORK/out" ] || fail "$name: the output directory was created"
  checksums "$root" >"$WORK/after"
  expect_same "$name: the package" "$WORK/before" "$WORK/after"
}

refused climbing '..\..\secret\Key.vgxXml' "lies outside the confinement roots (its real path is '$WORK/secret/Key.vgxXml')"
refused drive "Z:$(winpath "$WORK/secret/Key.vgxXml")" "document 'Z:$(winpath "$WORK/secret/Key.vgxXml")' (named by '$(winpath "$pkg")\\SOI.vgxXml') lies outside"
refused proc 'Z:\proc\self\environ' "document 'Z:\\proc\\self\\environ' (named by"
refused device 'Z:\dev\null' "document 'Z:\\dev\\null'"

# A link inside the roots that points outside.
rm -rf "$root" "$WORK/out"
product "$root/lib/Good.vgxXml"
ln -s "$WORK/secret/Key.vgxXml" "$root/lib/Link.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\Good.vgxXml' '..\lib\Link.vgxXml'
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --confine "$root"
expect_status 2 "$status" "link"
expect_grep "link" "(its real path is '$WORK/secret/Key.vgxXml')" "$WORK/stderr"

# The same through NOMZUB_CONFINE, two roots separated by a colon.
status=0
NOMZUB_CONFINE="$WORK/elsewhere:$root" "$NOMSOI" --log "$WORK/log" pack --main "$pkg/SOI.vgxXml" \
  --out "$WORK/out" 2>"$WORK/stderr" || status=$?
expect_status 2 "$status" "NOMZUB_CONFINE"
expect_grep "NOMZUB_CONFINE" "lies outside the confinement roots" "$WORK/stderr"

# A shared resource outside the roots.
rm -rf "$root" "$WORK/out"
product "$root/lib/Good.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\Good.vgxXml'
sed -i "s|</VgxDocument>|  <Resource File=\"..\\\\..\\\\secret\\\\Key.vgxXml\"/>\n</VgxDocument>|" "$pkg/SOI.vgxXml"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --confine "$root"
expect_status 2 "$status" "resource"
expect_grep "resource" "nomsoi pack: refused: resource '" "$WORK/stderr"

# Inside the roots (the output directory too): packed.
rm -rf "$root" "$WORK/out"
product "$root/lib/Good.vgxXml" 'sub\Nested.vgxXml'
product "$root/lib/sub/Nested.vgxXml"
main_document "$pkg/SOI.vgxXml" '..\lib\Good.vgxXml'
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" --confine "$root"
expect_status 0 "$status" "inside the roots"
[ -f "$pkg/Nested.vgxGeom" ] || fail "inside the roots: Nested.vgxGeom not copied"

# The copies keep the source's permission bits (plus owner write), never wider.
rm -rf "$root"
product "$root/lib/Private.vgxXml"
chmod 600 "$root/lib/Private.vgxXml"
chmod 400 "$root/lib/Private.vgxGeom"
main_document "$pkg/SOI.vgxXml" '..\lib\Private.vgxXml'
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg"
expect_status 0 "$status" "private files"
[ "$(stat -c %a "$pkg/Private.vgxXml")" = 600 ] || fail "Private.vgxXml: $(stat -c %a "$pkg/Private.vgxXml")"
[ "$(stat -c %a "$pkg/Private.vgxGeom")" = 600 ] || fail "Private.vgxGeom: $(stat -c %a "$pkg/Private.vgxGeom")"
echo "pack_confine: ok"
