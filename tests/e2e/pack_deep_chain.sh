#!/usr/bin/env bash
# A chain of 50,000 nested product documents packs completely: the module walks it on a thread
# whose stack fits the depth the preflight measured. Past --max-depth it is refused.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

n=50000
# 100,000 files in one directory: on a memory file system when there is one, for speed.
FAST=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$WORK" "$FAST"' EXIT
lib="$FAST/lib"
pkg="$FAST/pkg"
mkdir -p "$lib" "$pkg"
python3 - "$lib" "$n" <<'PY'
import os, sys
lib, n = sys.argv[1], int(sys.argv[2])
for i in range(n):
    ref = f'<CLitAssyGroup IsInstanceOf="C{i + 1}.vgxXml"/>' if i + 1 < n else '<CLitAssyGroup/>'
    with open(os.path.join(lib, f"C{i}.vgxXml"), "w") as f:
        f.write(f'<?xml version="1.0" encoding="UTF-8"?>\n<VgxDocument>{ref}</VgxDocument>\n')
    with open(os.path.join(lib, f"C{i}.vgxGeom"), "w") as f:
        f.write(f"glb:{i}")
PY
main_document "$pkg/SOI.vgxXml" '..\lib\C0.vgxXml'

run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" --max-depth 49999
expect_status 2 "$status" "past --max-depth"
expect_grep "past --max-depth" "refused: product documents nest deeper than --max-depth 49999" "$WORK/stderr"

run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg"
expect_status 0 "$status" "a chain of $n documents"
expect_grep "summary" "nomsoi pack: $n documents, $n geometry files, 0 resources," "$WORK/stderr"
[ "$(find "$pkg" -name '*.vgxGeom' | wc -l)" = "$n" ] || fail "not every geometry file was copied"
grep -q 'IsInstanceOf="C49999.vgxXml"' "$pkg/C49998.vgxXml" || fail "the last reference was not rewritten"
echo "pack_deep_chain: ok"
