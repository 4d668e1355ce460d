#!/usr/bin/env bash
# nomsoi db sample, then nomsoi dump --mapping with 3D states: a self-contained SOI directory where
# every IsInstanceOf is the bare name of a file that is there, every product document has its
# geometry, the states are applied, and Mapping.xml names every object of the sample project.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

db="sqlite:$WORK/plan.db"
out="$WORK/soi"
dump_sample --mapping
expect_no_service_errors "$WORK/dump.log"

# 20 product documents, each with its geometry, beside the main document, the views and the map.
docs=$(cd "$out" && ls -- *.vgxXml | grep -vx SOI.vgxXml | wc -l)
[ "$docs" -eq 20 ] || fail "expected 20 product documents in $out, found $docs"
for doc in "$out"/*.vgxXml; do
  [ "$(basename "$doc")" = SOI.vgxXml ] && continue
  geom="${doc%.vgxXml}.vgxGeom"
  [ -f "$geom" ] || fail "no geometry beside $(basename "$doc")"
  [ "$(head -c 4 "$geom")" = glTF ] || fail "$(basename "$geom") is not binary glTF"
done
for f in SOI.vgxXml SOI.vgxView Mapping.xml; do [ -f "$out/$f" ] || fail "no $f in $out"; done

# Every reference is a bare file name that lies in the SOI directory.
refs=0
while IFS= read -r ref; do
  refs=$((refs + 1))
  case "$ref" in */* | *\\* | *:*) fail "reference '$ref' is not a bare file name" ;; esac
  [ -f "$out/$ref" ] || fail "reference '$ref' names no file in $out"
done < <(cat "$out"/*.vgxXml | grep -o 'IsInstanceOf="[^"]*"' | sed 's/^IsInstanceOf="//; s/"$//')
[ "$refs" -eq 39 ] || fail "expected 39 references, found $refs"

grep -q '<State Target="ManufProd/Gearbox/Housing" Visible="true"' "$out/SOI.vgxXml" ||
  fail "3D states not applied"
entities=$(grep -o '<Entity>' "$out/Mapping.xml" | wc -l)
[ "$entities" -eq 26 ] || fail "expected 26 entities in Mapping.xml, found $entities"
grep -q 'ProductList/Line/Station1/Fixture/Bolt.1#' "$out/Mapping.xml" ||
  fail "Mapping.xml lacks the ident path of the first bolt"
views=$(grep -o '<View ' "$out/Mapping.xml" | wc -l)
[ "$views" -eq 10 ] || fail "expected 10 views in Mapping.xml, found $views"
echo "dump_sample: ok"
