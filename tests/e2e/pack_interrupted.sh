#!/usr/bin/env bash
# An interrupted pack loses nothing. A run stopped by SIGTERM puts the main document and view
# file back before it ends (status 143); a run killed with SIGKILL leaves its journal, and the next
# run puts them back first. The run is held at a known point by a log that nobody reads.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

lib="$WORK/lib"
pkg="$WORK/pkg"
refs=()
for i in $(seq 1 1500); do
  product "$lib/P$i.vgxXml"
  rm "$lib/P$i.vgxGeom"  # each missing geometry file logs a line: the log fills up
  refs+=("..\\lib\\P$i.vgxXml")
done
main_document "$pkg/SOI.vgxXml" "${refs[@]}"
cp "$pkg/SOI.vgxXml" "$WORK/main.before"

# start_held: starts nomsoi pack logging into a FIFO that is opened but never read, and waits
# until the run is blocked with its journal written.
start_held() {
  rm -f "$WORK/fifo"
  mkfifo "$WORK/fifo"
  exec 3<>"$WORK/fifo"
  "$NOMSOI" --log "$WORK/fifo" pack --main "$pkg/SOI.vgxXml" --out "$pkg" 2>"$WORK/stderr" &
  pid=$!
  for _ in $(seq 1 600); do
    [ -f "$pkg/.nomsoi-journal/entries" ] && break
    sleep 0.05
  done
  [ -f "$pkg/.nomsoi-journal/entries" ] || fail "the run did not start its journal"
  sleep 0.5
  kill -0 "$pid" || fail "the run was not held"
}

# SIGTERM: the main document (rewritten here as if the module had saved it) is put back.
start_held
sed -i 's/\.\.\\lib\\//' "$pkg/SOI.vgxXml"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
exec 3>&-
expect_status 143 "$status" "SIGTERM"
cmp "$WORK/main.before" "$pkg/SOI.vgxXml" || fail "SIGTERM: the main document was not put back"
[ ! -e "$pkg/.nomsoi-journal" ] || fail "SIGTERM: the journal was left behind"
expect_grep "SIGTERM" "interrupted; the main document and view file are as they were" "$WORK/stderr"

# SIGKILL: the journal stays; the next run puts the main document back before it packs.
start_held
sed -i 's/\.\.\\lib\\//' "$pkg/SOI.vgxXml"
kill -KILL "$pid"
wait "$pid" || true
exec 3>&-
[ -f "$pkg/.nomsoi-journal/entries" ] || fail "SIGKILL: no journal left"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" --dry-run
expect_status 3 "$status" "dry run after SIGKILL (geometry is missing)"
[ -f "$pkg/.nomsoi-journal/entries" ] || fail "the dry run touched the journal"
run_host "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg"
expect_status 3 "$status" "the run after SIGKILL (geometry is missing)"
expect_grep "rerun" "nomsoi pack: put back '$pkg/SOI.vgxXml' as it was before an interrupted run" "$WORK/stderr"
expect_grep "rerun" "nomsoi pack: 1500 documents, 0 geometry files" "$WORK/stderr"
[ ! -e "$pkg/.nomsoi-journal" ] || fail "the journal was left behind"
echo "pack_interrupted: ok"
