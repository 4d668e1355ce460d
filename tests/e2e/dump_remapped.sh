#!/usr/bin/env bash
# nomsoi dump into an output directory named through a remapped Z: drive, then through a mapped
# share (with Z: remapped elsewhere): each run exits 0 with the whole package in the directory the
# drive or share maps --out to, its references bare names of files there, and nothing written
# anywhere else below the mapped directories.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

db="sqlite:$WORK/plan.db"
"$NOMSOI" db sample --server "$db" 2>/dev/null || fail "db sample"

# expect_package WHAT DIR: the sample's package, gathered into DIR.
expect_package() {
  local docs refs=0 ref
  for f in SOI.vgxXml SOI.vgxView Mapping.xml; do [ -f "$2/$f" ] || fail "$1: no $f in $2"; done
  docs=$(cd "$2" && ls -- *.vgxXml | grep -vx SOI.vgxXml | wc -l)
  [ "$docs" -eq 20 ] || fail "$1: expected 20 product documents in $2, found $docs"
  while IFS= read -r ref; do
    refs=$((refs + 1))
    case "$ref" in */* | *\\* | *:*) fail "$1: reference '$ref' is not a bare file name" ;; esac
    [ -f "$2/$ref" ] || fail "$1: reference '$ref' names no file in $2"
  done < <(cat "$2"/*.vgxXml | grep -o 'IsInstanceOf="[^"]*"' | sed 's/^IsInstanceOf="//; s/"$//')
  [ "$refs" -eq 39 ] || fail "$1: expected 39 references, found $refs"
  grep -q '<State Target="ManufProd/Gearbox/Housing" Visible="true"' "$2/SOI.vgxXml" ||
    fail "$1: 3D states not applied"
}

# dump_into WHAT OUT GLOBAL_OPTIONS...: runs dump with the product cache and the output directory
# given as module paths; leaves the exit status in $status.
dump_into() {
  local what=$1 out=$2
  shift 2
  status=0
  "$NOMSOI" "$@" --log-format raw --log "$WORK/$what.log" dump --server "$db" --login planner \
    --password planner --project AssemblyLine --out "$out" --position 3D_States --mapping \
    2>"$WORK/$what.err" || status=$?
  if [ "$status" -ne 0 ]; then
    cat "$WORK/$what.err" >&2
    fail "$what: exit status $status, expected 0"
  fi
  expect_no_service_errors "$WORK/$what.log"
}

# Z: remapped: the package and the product cache lie below the drive's directory, and the
# package is registered under Z:, so nothing lands below a copy of the drive's own path.
mkdir -p "$WORK/z"
export NOMZUB_CACHE='Z:\cache'
dump_into drive 'Z:\line1' --drive "Z=$WORK/z"
expect_package drive "$WORK/z/line1"
[ "$(ls "$WORK/z")" = "$(printf 'cache\nline1')" ] ||
  fail "drive: files outside the package and the cache: $(ls "$WORK/z")"
expect_grep "drive: registered under Z:" 'generated package Z:\line1\SOI.vgxXml' "$WORK/drive.log"

# A share, with Z: mapped to a directory that does not hold it: the package is named through
# the share.
mkdir -p "$WORK/share" "$WORK/elsewhere"
export NOMZUB_CACHE='\\planning\soi\cache'
dump_into share '\\planning\soi\line1' --drive "Z=$WORK/elsewhere" \
  --share "\\\\planning\\soi=$WORK/share"
expect_package share "$WORK/share/line1"
[ "$(ls "$WORK/share")" = "$(printf 'cache\nline1')" ] ||
  fail "share: files outside the package and the cache: $(ls "$WORK/share")"
[ -z "$(ls -A "$WORK/elsewhere")" ] || fail "share: files written below Z:"
expect_grep "share: registered under the share" \
  'generated package \\planning\soi\line1\SOI.vgxXml' "$WORK/share.log"
echo "dump_remapped: ok"
