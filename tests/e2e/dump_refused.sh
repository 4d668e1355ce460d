#!/usr/bin/env bash
# nomsoi dump against databases it must refuse: a wrong password, a database of a newer schema
# version, a corrupt file, a filter with a syntax error. Each exits 1 with its level-2 cause in the
# log, leaves the database as it was and generates no package. A generator option it does not
# know is refused before anything runs (exit 2, with the options it knows).
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

export NOMZUB_CACHE="$WORK/cache"
db="$WORK/plan.db"
"$NOMSOI" db sample --server "sqlite:$db" 2>/dev/null || fail "db sample"

# dump_refused NAME DATABASE PASSWORD FILTER EXPECTED_CAUSE
dump_refused() {
  local before status=0
  before=$(sha256sum "$2")
  "$NOMSOI" --log-format raw --log "$WORK/$1.log" dump --server "sqlite:$2" --login planner \
    --password "$3" --project AssemblyLine --filters "$4" --out "$WORK/$1" --mapping \
    2>/dev/null || status=$?
  expect_status 1 "$status" "$1"
  grep -qxF "2${T}****** ERROR:${T} $5" "$WORK/$1.log" || {
    cat "$WORK/$1.log" >&2
    fail "$1: cause '$5' not logged at level 2"
  }
  [ "$(sha256sum "$2")" = "$before" ] || fail "$1: the database changed"
  [ -z "$(ls -A "$WORK/$1" 2>/dev/null)" ] || fail "$1: files written to $WORK/$1"
  [ ! -e "$WORK/cache" ] || fail "$1: product cache written"
}

dump_refused password "$db" wrong "" \
  "login refused for 'planner': unknown login or wrong password"
dump_refused filter "$db" planner 'kind=product and' \
  "filter syntax error at position 17: expected a field (kind, name, oid or ident), found the end"

cp "$db" "$WORK/newer.db"
"$NOMSOI" db init --server "sqlite:$WORK/newer.db" 2>/dev/null
sqlite3 "$WORK/newer.db" "UPDATE schema_version SET version = 9"
dump_refused newer "$WORK/newer.db" planner "" \
  "planning database sqlite:$WORK/newer.db has schema version 9, newer than this build's 2"

head -c 8192 /dev/urandom >"$WORK/corrupt.db"
dump_refused corrupt "$WORK/corrupt.db" planner "" \
  "planning database sqlite:$WORK/corrupt.db cannot be used: file is not a database"
status=0
"$NOMSOI" --log-format raw --log "$WORK/option.log" dump --server "sqlite:$db" --login planner \
  --password planner --project AssemblyLine --out "$WORK/option" --option bogus \
  2>"$WORK/option.err" || status=$?
expect_status 2 "$status" "unknown --option"
expect_grep "unknown --option" "nomsoi dump: --option: 'bogus' " "$WORK/option.err"
expect_grep "unknown --option" "(known: refs=relative|dot|climb|drive[,...], sep=backslash|slash|mixed)" \
  "$WORK/option.err"
[ ! -e "$WORK/option" ] || fail "unknown --option: the output directory was created"
[ -z "$(module_lines "$WORK/option.log")" ] || fail "unknown --option: the module ran"
echo "dump_refused: ok"
