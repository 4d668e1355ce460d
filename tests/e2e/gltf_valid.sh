#!/usr/bin/env bash
# nomsoi db sample, then nomsoi dump with 3D states: every geometry file written (in the SOI
# directory and in the product cache) passes the Khronos glTF validator with no error, no warning
# and no info.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

validator="$NOMSOI_SOURCE_DIR/web/validate_gltf.mjs"
if ! command -v node >/dev/null; then
  echo "gltf_valid: skipped, no node" >&2
  exit 77
fi
if [ ! -d "$NOMSOI_SOURCE_DIR/web/node_modules/gltf-validator" ]; then
  echo "gltf_valid: skipped, gltf-validator not installed (scripts/install-deps)" >&2
  exit 77
fi

db="sqlite:$WORK/plan.db"
out="$WORK/soi"
dump_sample
expect_no_service_errors "$WORK/dump.log"

files=()
while IFS= read -r -d '' f; do files+=("$f"); done < <(find "$out" "$WORK/cache" -name '*.vgxGeom' -print0 | sort -z)
# 20 products: their geometry in the SOI directory and in the product cache.
[ "${#files[@]}" -eq 40 ] || fail "expected 40 geometry files, found ${#files[@]}"

status=0
node "$validator" "${files[@]}" >"$WORK/report" || status=$?
[ "$status" -eq 0 ] || {
  cat "$WORK/report" >&2
  fail "the glTF validator reports errors or warnings"
}
# One summary line per file, each with no error, no warning and no info (unused objects, empty
# nodes): the files hold only what a viewer shows.
clean=$(grep -c ': 0 errors, 0 warnings, 0 infos, ' "$WORK/report" || true)
[ "$clean" -eq 40 ] || {
  cat "$WORK/report" >&2
  fail "expected 40 clean validator reports, found $clean"
}
echo "gltf_valid: ok"
