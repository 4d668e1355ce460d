#!/usr/bin/env bash
# The exit status of pack says what the user got: 0 when every referenced document and geometry
# file was copied (whatever the module's own result), 3 when references were missing, 1 when a
# copy failed; the summary line and the JSON report list every copied, missing and failed file.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

copy_examples
ex="$WORK/ex"
pkg="$ex/package"

# Complete: the last copied document refers to nothing, so the module's own result is a failure.
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --view "$pkg/SOI.vgxView" --out "$pkg" \
  --report "$WORK/report.json"
expect_status 0 "$status" "complete pack"
grep -q "^nomsoi pack: 9 documents, 9 geometry files, 1 resources, [0-9]* bytes copied; 0 missing, 0 failed; output $pkg; module result 0x00000000\$" \
  "$WORK/stderr" || fail "summary of the complete pack: $(cat "$WORK/stderr")"
python3 - "$WORK/report.json" "$pkg" "$WORK/stderr" <<'PY' || fail "report of the complete pack"
import json, os, sys
report = json.load(open(sys.argv[1]))
assert report["command"] == "pack" and report["status"] == 0, report
assert report["module_result"] == "0x00000000", report["module_result"]
assert report["output"] == sys.argv[2]
assert (report["documents"], report["geometry"], report["resources"]) == (9, 9, 1)
assert report["missing"] == [] and report["failed"] == []
kinds = sorted(item["kind"] for item in report["copied"])
assert kinds == ["document"] * 9 + ["geometry"] * 9 + ["resource"], kinds
frame = [i for i in report["copied"] if i["target"].endswith("Frame.vgxXml")][0]
assert frame["source"].endswith("library\\Frame.vgxXml"), frame
assert frame["referrer"].endswith("package\\SOI.vgxXml"), frame
def native(module_path):
    # The file a module path names, its components matched without letter case as on Windows.
    path = "/"
    for name in module_path.replace("\\", "/").split("/"):
        if name in ("", "."):
            continue
        if name == "..":
            path = os.path.dirname(path.rstrip("/")) or "/"
            continue
        entries = os.listdir(path)
        match = name if name in entries else [e for e in entries if e.lower() == name.lower()][0]
        path = os.path.join(path, match)
    return path
sources = sum(os.path.getsize(native(i["source"])) for i in report["copied"])
assert report["bytes"] == sources, (report["bytes"], sources)
summary = open(sys.argv[3]).read()
assert f" {sources} bytes copied;" in summary, summary
PY

# Missing: a product document and a geometry file are gone.
rm -rf "$ex"
copy_examples
rm "$ex/library/resources/Robot.vgxXml" "$ex/library/Wheel.vgxGeom"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" --report "$WORK/report.json"
expect_status 3 "$status" "pack with missing references"
grep -q "; 2 missing, 0 failed; output $pkg; module result " "$WORK/stderr" ||
  fail "summary of the pack with missing references: $(cat "$WORK/stderr")"
w=$(winpath "$ex")
grep -qF "  missing document '$w\\library\\resources\\Robot.vgxXml' (named by '$(winpath "$pkg")\\SOI.vgxXml')" \
  "$WORK/stderr" || fail "missing document not named: $(cat "$WORK/stderr")"
python3 - "$WORK/report.json" <<'PY' || fail "report of the pack with missing references"
import json, sys
report = json.load(open(sys.argv[1]))
assert report["status"] == 3
missing = sorted((i["kind"], i["source"].rsplit("\\", 1)[-1]) for i in report["missing"])
assert missing == [("document", "Robot.vgxXml"), ("geometry", "Wheel.vgxGeom")], missing
PY

# Failed: a read-only target in the output directory.
rm -rf "$ex"
copy_examples
mkdir "$WORK/out"
echo old >"$WORK/out/Bolt.vgxXml"
chmod 444 "$WORK/out/Bolt.vgxXml"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$WORK/out" --report "$WORK/report.json"
expect_status 1 "$status" "pack with a read-only target"
grep -qF "  failed document '$w\\library\\parts\\Bolt.vgxXml' -> '$WORK/out\\Bolt.vgxXml': Windows error 5 (access denied)" \
  "$WORK/stderr" || fail "failed copy not named: $(cat "$WORK/stderr")"
python3 - "$WORK/report.json" <<'PY' || fail "report of the failed pack"
import json, sys
report = json.load(open(sys.argv[1]))
assert report["status"] == 1
failed = report["failed"][0]
assert failed["error"] == 5 and failed["error_text"] == "Windows error 5 (access denied)", failed
assert failed["referrer"].endswith("drive\\Drive.vgxXml") or failed["referrer"].endswith("Frame.vgxXml") \
    or failed["referrer"].endswith("Cart.vgxXml"), failed
PY
echo "pack_outcome: ok"
