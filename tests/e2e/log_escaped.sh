#!/usr/bin/env bash
# No input can forge a log line: a reference holding a newline, a carriage return or a tab is
# logged with the line ends escaped, in the text and the raw format, one record a line. ESC and
# the other control characters cannot reach the log through a document at all: XML forbids them,
# even as character references, and such a document is refused before the module runs.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

pkg="$WORK/pkg"
main_document "$pkg/SOI.vgxXml" 'a&#10;0&#9;Info:&#9; forged&#13;[2J.vgxXml'
wp=$(winpath "$pkg")
for format in raw text; do
  rm -f "$WORK/log"
  status=0
  "$NOMSOI" --log-format "$format" --log "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" \
    2>"$WORK/stderr" || status=$?
  expect_status 3 "$status" "$format: the reference is missing"
  line="Info:$T Unable to open Document - $wp\\a\\n0${T}Info:$T forged\\r[2J.vgxXml"
  expect_grep "$format: escaped line" "$line" "$WORK/log"
  [ "$(grep -c 'forged' "$WORK/log")" = 1 ] || fail "$format: the record spans lines"
done

main_document "$pkg/SOI.vgxXml" 'a&#27;[2J.vgxXml'
status=0
"$NOMSOI" --log "$WORK/log" pack --main "$pkg/SOI.vgxXml" --out "$pkg" 2>"$WORK/stderr" ||
  status=$?
expect_status 2 "$status" "a character reference to ESC is not XML"
expect_grep "ESC refused" "character reference" "$WORK/stderr"
echo "log_escaped: ok"
