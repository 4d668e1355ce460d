#!/usr/bin/env bash
# nomsoi db sample, then nomsoi dump --position 3D_States --preview: preview.glb and preview.html
# are written beside the package, and the page, opened from file:// in headless Chromium, loads
# without a request, console error or page error, shows as many instances as the package places,
# highlights the instance a tree entry names, and draws a real picture
# ($NOMSOI_BINARY_DIR/test-artifacts/preview.png).
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"
: "${NOMSOI_BINARY_DIR:?NOMSOI_BINARY_DIR must name the build tree}"

web="$NOMSOI_SOURCE_DIR/web"
chromium=${CHROMIUM:-/usr/bin/chromium}
[ -x "$chromium" ] || { echo "preview_browser: skipped: no $chromium"; exit 77; }
[ -d "$web/node_modules/puppeteer-core" ] ||
  fail "web/node_modules lacks puppeteer-core: run scripts/install-deps --test"

db="sqlite:$WORK/plan.db"
out="$WORK/soi"
dump_sample --preview
for f in preview.glb preview.html; do [ -s "$out/$f" ] || fail "no $f in $out"; done
[ "$(head -c 4 "$out/preview.glb")" = glTF ] || fail "preview.glb is not binary glTF"

# The instances the package places: a CLitAssyGroup with a non-empty IsInstanceOf is one, and
# its product document's instances are placed again under it; one without is a group whose
# children count in its place.
instances=$(python3 - "$out" <<'PY'
import os, sys, xml.etree.ElementTree as ET
d = sys.argv[1]
def count(element):
    n = 0
    for child in element.findall("CLitAssyGroup"):
        ref = child.get("IsInstanceOf")
        if ref:
            n += 1 + count(ET.parse(os.path.join(d, ref)).getroot())
        else:
            n += count(child)
    return n
print(count(ET.parse(os.path.join(d, "SOI.vgxXml")).getroot()))
PY
)
grep -q "preview '$out/preview.html': $instances instances, " "$WORK/stderr" ||
  fail "dump did not report $instances instances: $(cat "$WORK/stderr")"

artifacts="$NOMSOI_BINARY_DIR/test-artifacts"
mkdir -p "$artifacts"
status=0
node "$web/browser_test.mjs" "$out/preview.html" "$instances" "$artifacts/preview.png" ||
  status=$?
expect_status 0 "$status" "browser_test.mjs"

# Without one product's geometry the preview still shows the package: a placeholder box for each
# instance of that product, the file listed on the page, exit status 3.
cp -r "$out" "$WORK/partial"
rm "$WORK/partial/P-BOLT.vgxGeom" "$WORK/partial/preview.glb" "$WORK/partial/preview.html"
status=0
"$NOMSOI" --log "$WORK/partial.log" preview "$WORK/partial" 2>"$WORK/partial.err" || status=$?
expect_status 3 "$status" "preview without P-BOLT.vgxGeom"
grep -q "geometry 'P-BOLT.vgxGeom' of 'P-BOLT.vgxXml': missing" "$WORK/partial.err" ||
  fail "the missing geometry is not named: $(cat "$WORK/partial.err")"
products=$(cd "$out" && ls -- *.vgxXml | grep -vx SOI.vgxXml | wc -l)
grep -q "$instances instances, $products products, 1 missing geometry" "$WORK/partial.err" ||
  fail "unexpected summary: $(cat "$WORK/partial.err")"
status=0
node "$web/browser_test.mjs" "$WORK/partial/preview.html" "$instances" "$artifacts/preview-missing.png" ||
  status=$?
expect_status 0 "$status" "browser_test.mjs without P-BOLT.vgxGeom"
echo "preview_browser: ok"
