#!/usr/bin/env bash
# Installs the build into a fresh prefix, builds examples/consumer against it with
# find_package(NOMVGXGenBase), and checks what a connection to an unreachable server logs.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$NOMSOI_BINARY_DIR" --prefix "$work/prefix" >/dev/null
flags=""
[ "${NOMSOI_SANITIZE:-OFF}" = "ON" ] && flags="-fsanitize=address,undefined"
cmake -S "$NOMSOI_SOURCE_DIR/examples/consumer" -B "$work/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$work/build" >/dev/null

# The pkg-config file names the same libraries.
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --libs NOMVGXGenBase | grep -q -- -lNOMVGXGenBase

out=$(NOMZUB_SERVER="sqlite:$work/missing.db" NOMZUB_LOG="$work/log" NOMZUB_LOG_FORMAT=raw \
      "$work/build/consumer")
[ "$out" = "ConnectServer=0 DisconnectServer=1" ] || { echo "unexpected: $out"; exit 1; }

expected=$(printf '0\tInfo:\t NOMSOIUtility::ConnectServer -->\n0\t****** ERROR:\t FAILED to Connect\n0\tInfo:\t NOMSOIUtility::ConnectServer <--\n0\tInfo:\t NOMSOIUtility::DisconnectServer -->\n0\tInfo:\t NOMSOIUtility::DisconnectServer <--')
actual=$(grep -v '^2	' "$work/log")
if [ "$actual" != "$expected" ]; then
  echo "module lines differ:"; diff <(echo "$expected") <(echo "$actual") || true; exit 1
fi
# The connector says why at level 2.
grep -q '^2	\*\*\*\*\*\* ERROR:	 ' "$work/log" || { echo "no level-2 cause"; cat "$work/log"; exit 1; }
echo "install_consumer: ok"
