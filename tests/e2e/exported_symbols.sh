#!/usr/bin/env bash
# The module exports exactly the symbols it always has: the class NOMSOIUtility, its static maps,
# the string order and the preflight. Moving the public types into a namespace, or any change to
# the headers, must not change a mangled name a host links against.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

: "${NOMSOI_BINARY_DIR:?NOMSOI_BINARY_DIR must name the build tree}"
library="$NOMSOI_BINARY_DIR/src/libNOMVGXGenBase.so"
golden="$NOMSOI_SOURCE_DIR/tests/golden/NOMVGXGenBase.symbols"
[ -f "$library" ] || fail "no module library at $library"

# Our own C++ names only: the standard library's template instances vary with the compiler's
# flags, and a sanitizer adds symbols of its own ("__odr_asan...").
nm -D --defined-only "$library" | awk '$3 ~ /^_Z/ {print $3}' | grep -e NOM -e nomsoi | LC_ALL=C sort \
  >"$WORK/symbols"
if ! diff -u "$golden" "$WORK/symbols" >"$WORK/diff"; then
  cat "$WORK/diff" >&2
  fail "the module's exported symbols changed (see the diff above)"
fi
echo "exported_symbols: ok ($(wc -l <"$WORK/symbols") symbols)"
