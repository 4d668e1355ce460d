#!/usr/bin/env bash
# The host's command line: --help on every command, usage errors (exit 2, a message naming the
# option and what was expected), and connect/dump against a server that cannot be reached (the
# connection lines, exit 1, DisconnectServer still called).
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

# --help: exit 0, the command's options listed.
expect_help() {
  local status=0
  "$NOMSOI" "$@" --help >"$WORK/help" 2>&1 || status=$?
  expect_status 0 "$status" "nomsoi $* --help"
}
expect_help
for word in dump odt pack db connect --log --log-format --code-page --drive --share; do
  grep -q -- "$word" "$WORK/help" || fail "nomsoi --help does not mention $word"
done
expect_help pack
for word in --main --view --out; do grep -q -- "$word" "$WORK/help" || fail "pack --help: $word"; done
expect_help odt
for word in --out --in --light --mapping ADL_ODT_IN; do
  grep -q -- "$word" "$WORK/help" || fail "odt --help: $word"
done
expect_help dump
for word in --server --login --password --project --filters --out --input --option --position \
  --light --mapping; do
  grep -q -- "$word" "$WORK/help" || fail "dump --help: $word"
done
expect_help db
for word in init sample --server; do grep -q -- "$word" "$WORK/help" || fail "db --help: $word"; done
expect_help connect
for word in --server --login --password --project --filters; do
  grep -q -- "$word" "$WORK/help" || fail "connect --help: $word"
done

# usage NAME EXPECTED_STDERR ARGS...: exit 2 with exactly that message.
usage() {
  local name=$1 message=$2 status=0
  shift 2
  "$NOMSOI" "$@" >"$WORK/$name.out" 2>"$WORK/$name.err" || status=$?
  expect_status 2 "$status" "$name"
  expect_text "$name: standard error" "$message" "$WORK/$name.err"
}
hint='Run with --help for more information.
'
usage no_command "A subcommand is required
$hint"
usage bad_log_format "--log-format: bogus not in {text,raw,jsonl}
$hint" --log-format bogus connect --server sqlite:x --login u --password p --project x
usage bad_drive "--drive: expected X=DIR (a drive letter, '=', a directory), got 'CC=/tmp'
$hint" --drive CC=/tmp odt --out "$WORK/out"
usage drive_not_a_directory "--drive: '$WORK/none' is not a directory
$hint" --drive "C=$WORK/none" odt --out "$WORK/out"
usage bad_share "--share: expected \\\\SERVER\\SHARE=DIR (a network share, '=', a directory), got 'srv=/tmp'
$hint" --share 'srv=/tmp' odt --out "$WORK/out"
usage bad_code_page "nomsoi: --code-page: 4242 is not supported (expected 65001, 1252, 932, 936, 949, 950 or another single-byte code page that iconv knows)
" --code-page 4242 odt --out "$WORK/out"
usage unwritable_log "nomsoi: --log: cannot open '$WORK/no/such/dir/log' for appending (expected a writable file)
" --log "$WORK/no/such/dir/log" odt --out "$WORK/out"
usage bad_position "--position: 3d_states not in {3D_States,Simulation_Positions}
$hint" dump --server sqlite:x --login u --password p --project x --out "$WORK/out" \
  --position 3d_states
usage dump_incomplete "--login is required
$hint" dump --server sqlite:x --password p --project x --out "$WORK/out"
usage db_bad_action "action: drop not in {init,sample}
$hint" db drop --server sqlite:x
[ ! -e "$WORK/out" ] || fail "a refused command created its output directory"

# Drive and share maps reach the module's paths: the package is read through a mapped drive and
# written through a mapped share, with repeated options and a single-byte code page.
mkdir -p "$WORK/c" "$WORK/d" "$WORK/share"
cp -r "$NOMSOI_SOURCE_DIR/examples/odt" "$WORK/c/odt"
status=0
"$NOMSOI" --drive "C=$WORK/c" --drive "d=$WORK/d" --share '\\srv\pub='"$WORK/share" \
  --code-page 1252 --log-format raw --log "$WORK/maps.log" odt --in 'C:\odt' \
  --out '\\srv\pub\out' 2>"$WORK/maps.err" || status=$?
expect_status 0 "$status" "odt through mapped drive and share"
{
  odt_head 'C:\odt' '\\srv\pub\out'
  example_groups 0
  odt_tail_without_mapping
} >"$WORK/expected.log"
expect_module_log "odt log through maps" "$WORK/maps.log"
tree_of "$WORK/share/out" >"$WORK/tree"
expect_text "share directory" "$ODT_OUT_TREE" "$WORK/tree"

# connect to a server that cannot be reached: the connection lines, then the disconnection's.
server="sqlite:$WORK/nonexistent/x.db"
status=0
"$NOMSOI" --log-format raw --log "$WORK/connect.log" connect --server "$server" --login u \
  --password p --project prj >"$WORK/connect.out" 2>"$WORK/connect.err" || status=$?
expect_status 1 "$status" "connect to $server"
{
  info 0 'NOMSOIUtility::ConnectServer -->'
  error 0 'FAILED to Connect'
  info 0 'NOMSOIUtility::ConnectServer <--'
  info 0 'NOMSOIUtility::DisconnectServer -->'
  info 0 'NOMSOIUtility::DisconnectServer <--'
} >"$WORK/expected.log"
expect_module_log "connect log" "$WORK/connect.log"
grep -q "^2${T}" "$WORK/connect.log" || fail "the connector did not say why it failed"
expect_text "connect: standard error" "nomsoi connect: not connected to '$server' (login 'u', project 'prj'); the log says which step failed and why
" "$WORK/connect.err"
[ ! -e "$WORK/nonexistent" ] || fail "connect created $WORK/nonexistent"

# dump against the same server: no package stage runs, DisconnectServer is still called.
status=0
"$NOMSOI" --log-format raw --log "$WORK/dump.log" dump --server "$server" --login u \
  --password p --project prj --out "$WORK/soi" 2>"$WORK/dump.err" || status=$?
expect_status 1 "$status" "dump from $server"
expect_module_log "dump log" "$WORK/dump.log"
echo "host_usage: ok"
