#!/usr/bin/env bash
# nomsoi pack and odt given relative paths, run from inside the package: bare names, "./" names
# and "../" names behave exactly like the full paths of the same files: the same log lines, the
# same files in the output, the same exit status.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

# Runs nomsoi in directory DIR on a fresh copy of the examples and keeps its log, standard error,
# status and resulting package under NAME: run_in NAME DIR ARGS...
run_in() {
  local name=$1 dir=$2
  shift 2
  rm -rf "$WORK/ex" "$WORK/$name"
  copy_examples
  mkdir "$WORK/$name"
  status=0
  (cd "$dir" && "$NOMSOI" --log-format raw --log "$WORK/$name/log" "$@") \
    2>"$WORK/$name/stderr" || status=$?
  echo "$status" >"$WORK/$name/status"
  cp -r "$WORK/ex" "$WORK/$name/ex"
}

# The two runs must agree on everything: same_runs WHAT FULL RELATIVE
same_runs() {
  expect_same "$1: exit status" "$WORK/$2/status" "$WORK/$3/status"
  expect_same "$1: log" "$WORK/$2/log" "$WORK/$3/log"
  expect_same "$1: standard error" "$WORK/$2/stderr" "$WORK/$3/stderr"
  diff -r "$WORK/$2/ex" "$WORK/$3/ex" >&2 || fail "$1: the packages differ"
}

ex="$WORK/ex"
pkg="$ex/package"

run_in full "$WORK" pack --main "$pkg/SOI.vgxXml" --view "$pkg/SOI.vgxView" --out "$pkg"
[ "$(cat "$WORK/full/status")" = 0 ] || fail "pack with full paths: status $(cat "$WORK/full/status")"
grep -q "Nb Child Nodes: 2" "$WORK/full/log" || fail "pack with full paths copied nothing"
[ -f "$WORK/full/ex/package/Frame.vgxXml" ] || fail "pack with full paths: no Frame.vgxXml"

run_in bare "$pkg" pack --main SOI.vgxXml --view SOI.vgxView --out .
same_runs "bare names" full bare

run_in dotted "$pkg" pack --main ./SOI.vgxXml --view ./SOI.vgxView --out ./
same_runs "./ names" full dotted

run_in climbing "$ex/library" pack --main ../package/SOI.vgxXml --view ../package/SOI.vgxView \
  --out ../package
same_runs "../ names" full climbing

run_in odt_full "$WORK" odt --in "$ex/odt" --out "$ex/odt/out"
[ "$(cat "$WORK/odt_full/status")" = 0 ] || fail "odt with full paths failed"
run_in odt_relative "$ex/odt/NOMZUBVGXExtractTest" odt --in .. --out ../out
same_runs "odt with ../ names" odt_full odt_relative
run_in odt_bare "$ex/odt" odt --in . --out out
same_runs "odt with bare names" odt_full odt_bare
echo "pack_relative: ok"
