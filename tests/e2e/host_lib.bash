# Shared by the end-to-end scripts of the host: a scratch directory removed at exit, the examples
# copied into it, exact comparison of raw log lines and of files.
# Needs NOMSOI (the host binary) and NOMSOI_SOURCE_DIR (the source tree) in the environment.
: "${NOMSOI:?NOMSOI must name the nomsoi binary}"
: "${NOMSOI_SOURCE_DIR:?NOMSOI_SOURCE_DIR must name the source tree}"

T=$'\t'
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
unset ADL_ODT_IN NOMZUB_LOG NOMZUB_LOG_FORMAT NOMZUB_DRIVES NOMZUB_SHARES NOMZUB_CODE_PAGE

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

# Copies the examples to $WORK/ex (Pack & Go rewrites documents in place).
copy_examples() {
  cp -r "$NOMSOI_SOURCE_DIR/examples" "$WORK/ex"
}

# The module path the host's arguments turn into: every "/" becomes "\".
winpath() {
  printf '%s' "$1" | tr / '\\'
}

# Expected raw log lines: level, tab, message.
info() { printf '%s\tInfo:\t %s\n' "$1" "$2"; }
error() { printf '%s\t****** ERROR:\t %s\n' "$1" "$2"; }
plain() { printf '%s\t%s\n' "$1" "$2"; }

# The module's own lines of a raw log (levels 0 and 1; the services' level-2 diagnostics left out).
module_lines() {
  [ -f "$1" ] || return 0
  grep -v "^2${T}" "$1" || true
}

# Fails unless the service diagnostics of a raw log hold no error line.
expect_no_service_errors() {
  if grep -q "^2${T}\*\*\*\*\*\* ERROR:" "$1"; then
    grep "^2${T}" "$1" >&2
    fail "service errors in $1"
  fi
}

# expect_same WHAT EXPECTED_FILE ACTUAL_FILE: byte-for-byte comparison with a diff on failure.
expect_same() {
  diff -u "$2" "$3" >&2 || fail "$1 differs (--- expected, +++ actual)"
}

# expect_text WHAT EXPECTED_TEXT ACTUAL_FILE
expect_text() {
  local expected="$WORK/.expected.$RANDOM"
  printf '%s' "$2" >"$expected"
  expect_same "$1" "$expected" "$3"
}

# run_host LOG ARGS...: runs the host with a raw log into LOG and standard error into
# $WORK/stderr; leaves its exit status in $status.
run_host() {
  local log=$1
  shift
  status=0
  "$NOMSOI" --log-format raw --log "$log" "$@" 2>"$WORK/stderr" || status=$?
}

# expect_module_log WHAT LOG: the module's lines of LOG must be those of $WORK/expected.log.
expect_module_log() {
  module_lines "$2" >"$WORK/actual.log"
  expect_same "$1" "$WORK/expected.log" "$WORK/actual.log"
}

expect_status() {
  [ "$2" -eq "$1" ] || fail "$3: exit status $2, expected $1"
}

# Files under a directory, relative and sorted, one a line.
tree_of() {
  (cd "$1" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)
}

# The values of one attribute in a file, in document order, one a line.
attribute_values() {
  grep -o "$2=\"[^\"]*\"" "$1" | sed "s/^$2=\"//; s/\"\$//" || true
}

# The ODT driver's lines up to the list groups: odt_head INPUT_DIR_AS_GIVEN OUT_AS_GIVEN
odt_head() {
  info 0 'DumpVGXPackage_ODT ->>'
  info 0 'Generating VGX Package ...'
  info 0 'Running in ODT mode ...'
  plain 0 "Input Directory: $1\\NOMZUBVGXExtractTest"
  plain 0 "Output Directory: $2"
}

# The line a list group's walk starts with: group_start LEVEL NAME (the planning context's has no
# blank after the dots).
group_start() {
  if [ "$2" = Context ]; then
    info "$1" "Handle $2 Child Nodes ..."
  else
    info "$1" "Handle $2 Child Nodes ... "
  fi
}

# The line a list group's walk ends with: group_done LEVEL NAME
group_done() { info "$1" "Handle $2 Child Nodes ... Done!"; }

# The lines of one list group without problems: list_group LEVEL NAME COUNT
list_group() {
  group_start "$1" "$2"
  info 0 "Nb Child Nodes: $3"
  group_done "$1" "$2"
}

# The lines of the four list groups of the example packages (2, 1, 1 and 1 children), the start
# and end lines at LEVEL: example_groups LEVEL
example_groups() {
  list_group "$1" Product 2
  list_group "$1" Resource 1
  list_group "$1" MP 1
  list_group "$1" Context 1
}

# The lines around the update of the relative paths of the copied documents.
relative_path_lines() {
  info 0 'Updating the relative paths in extracted <KRTProduct>.vgxXml files...'
  info 0 'Updation of relative paths done...'
}

# The lines of one list group of the ODT driver: odt_group NAME COUNT
odt_group() { list_group 0 "$1" "$2"; }

odt_relative_paths() { relative_path_lines; }

# The ODT driver's last lines when no mapping is asked for.
odt_tail_without_mapping() {
  relative_path_lines
  info 0 'Generation of MappingXML skipped - Env not set'
  info 0 '<<- DumpVGXPackage_ODT '
}

# The references of the example ODT package's main document, as written.
ODT_MAIN_REFS='parts\Housing.vgxXml
..\library\Shaft.vgxXml
../library/Stand.vgxXml
.\parts\Pump.vgxXml
..\library\Floor.vgxXml
'
# What the example ODT package puts into an output directory other than its own: the copies, and
# the package's main document as the module saved it (the input is left untouched).
ODT_OUT_TREE='Floor.vgxGeom
Floor.vgxXml
Housing.vgxGeom
Housing.vgxXml
Pump.vgxGeom
Pump.vgxXml
SOI.vgxXml
Seal.vgxGeom
Seal.vgxXml
Shaft.vgxGeom
Shaft.vgxXml
Stand.vgxGeom
Stand.vgxXml
'
# The copies alone.
ODT_TREE='Floor.vgxGeom
Floor.vgxXml
Housing.vgxGeom
Housing.vgxXml
Pump.vgxGeom
Pump.vgxXml
Seal.vgxGeom
Seal.vgxXml
Shaft.vgxGeom
Shaft.vgxXml
Stand.vgxGeom
Stand.vgxXml
'

# Writes a product document FILE whose CLitAssyGroup elements refer to REFS, and its geometry
# file: product FILE REFS...
product() {
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  {
    echo '<?xml version="1.0" encoding="UTF-8"?>'
    echo '<VgxDocument>'
    local ref
    for ref in "$@"; do echo "  <CLitAssyGroup IsInstanceOf=\"$ref\"/>"; done
    [ $# -gt 0 ] || echo '  <CLitAssyGroup/>'
    echo '</VgxDocument>'
  } >"$file"
  printf 'glb:%s' "$file" >"${file%vgxXml}vgxGeom"
}

# Writes a main document FILE whose product list refers to REFS: main_document FILE REFS...
main_document() {
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  {
    echo '<?xml version="1.0" encoding="UTF-8"?>'
    echo '<VgxDocument>'
    echo '  <CLitAssyGroup Ident="ProductList">'
    local ref
    for ref in "$@"; do echo "    <CLitAssyGroup IsInstanceOf=\"$ref\"/>"; done
    echo '  </CLitAssyGroup>'
    echo '</VgxDocument>'
  } >"$file"
}

# A listing of every file under a directory with its checksum, to tell that nothing changed.
checksums() {
  (cd "$1" && find . -type f -print0 | LC_ALL=C sort -z | xargs -0 -r sha256sum)
}

# expect_grep WHAT PATTERN FILE: FILE must hold the fixed text PATTERN.
expect_grep() {
  grep -qF -- "$2" "$3" || fail "$1: '$2' not in $3: $(cat "$3")"
}

# Makes the sample planning database $WORK/plan.db and dumps its project AssemblyLine into
# $WORK/soi with 3D states applied, the product cache in $WORK/cache ($NOMZUB_CACHE); further
# arguments go to dump. Logs in $WORK/db.log and $WORK/dump.log, the dump's standard error in
# $WORK/stderr; a status other than 0 ends the script.
dump_sample() {
  export NOMZUB_CACHE="$WORK/cache"
  local status=0
  "$NOMSOI" --log-format raw --log "$WORK/db.log" db sample --server "sqlite:$WORK/plan.db" ||
    status=$?
  expect_status 0 "$status" "db sample"
  status=0
  "$NOMSOI" --log-format raw --log "$WORK/dump.log" dump --server "sqlite:$WORK/plan.db" \
    --login planner --password planner --project AssemblyLine --out "$WORK/soi" \
    --position 3D_States "$@" 2>"$WORK/stderr" || status=$?
  expect_status 0 "$status" "dump $*"
}
