#!/usr/bin/env bash
# Installs the build into a fresh prefix other than the configured one and moves the installed tree
# elsewhere, then builds examples/consumer against it twice, with find_package(NOMVGXGenBase) and
# with pkg-config, and checks what a connection to an unreachable server logs.
set -euo pipefail
work=$(cd "$(mktemp -d)" && pwd -P)
trap 'rm -rf "$work"' EXIT

cache_value() { sed -n "s/^$1:[A-Z]*=//p" "$NOMSOI_BINARY_DIR/CMakeCache.txt"; }
configured=$(cache_value CMAKE_INSTALL_PREFIX)
libdir=$(cache_value CMAKE_INSTALL_LIBDIR)
[ "$configured" != "$work/installed" ] || { echo "the configured prefix is the test's"; exit 1; }

cmake --install "$NOMSOI_BINARY_DIR" --prefix "$work/installed" >/dev/null
# Nothing in the tree may depend on where it was installed.
mv "$work/installed" "$work/prefix"
prefix="$work/prefix"

flags=""
[ "${NOMSOI_SANITIZE:-OFF}" = "ON" ] && flags="-fsanitize=address,undefined"
cmake -S "$NOMSOI_SOURCE_DIR/examples/consumer" -B "$work/build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
cmake --build "$work/build" >/dev/null

# The pkg-config file names the same libraries, and directories inside the moved tree.
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
pkg-config --libs NOMVGXGenBase | grep -q -- -lNOMVGXGenBase
includedir=$(realpath -m "$(pkg-config --variable=includedir NOMVGXGenBase)")
[ "$includedir" = "$prefix/include/NOMVGXGenBase" ] || { echo "pkg-config includedir: $includedir"; exit 1; }
pc_libdir=$(realpath -m "$(pkg-config --variable=libdir NOMVGXGenBase)")
[ "$pc_libdir" = "$prefix/$libdir" ] || { echo "pkg-config libdir: $pc_libdir"; exit 1; }
# shellcheck disable=SC2046,SC2086  # the flags are words
c++ -std=c++17 $flags "$NOMSOI_SOURCE_DIR/examples/consumer/main.cpp" -o "$work/consumer-pc" \
  $(pkg-config --cflags --libs NOMVGXGenBase)

expected=$(printf '0\tInfo:\t NOMSOIUtility::ConnectServer -->\n0\t****** ERROR:\t FAILED to Connect\n0\tInfo:\t NOMSOIUtility::ConnectServer <--\n0\tInfo:\t NOMSOIUtility::DisconnectServer -->\n0\tInfo:\t NOMSOIUtility::DisconnectServer <--')
# check_consumer WHAT COMMAND...: runs a consumer against a missing database and checks its output
# and the module's log lines.
check_consumer() {
  local what=$1
  shift
  rm -f "$work/log"
  out=$(NOMZUB_SERVER="sqlite:$work/missing.db" NOMZUB_LOG="$work/log" NOMZUB_LOG_FORMAT=raw "$@")
  [ "$out" = "ConnectServer=0 DisconnectServer=1" ] || { echo "$what: unexpected: $out"; exit 1; }
  actual=$(grep -v '^2	' "$work/log")
  if [ "$actual" != "$expected" ]; then
    echo "$what: module lines differ:"; diff <(echo "$expected") <(echo "$actual") || true; exit 1
  fi
  # The connector says why at level 2.
  grep -q '^2	\*\*\*\*\*\* ERROR:	 ' "$work/log" || { echo "$what: no level-2 cause"; cat "$work/log"; exit 1; }
}
check_consumer find_package "$work/build/consumer"
# A program linked by pkg-config's flags alone finds the libraries through the loader's path.
check_consumer pkg-config env LD_LIBRARY_PATH="$prefix/$libdir" "$work/consumer-pc"
echo "install_consumer: ok"
