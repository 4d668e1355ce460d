#!/usr/bin/env bash
# Makes the Debian package of the build with cpack, unpacks it, and checks that it is what a user
# installs: computed dependencies, the files `cmake --install` installs and nothing else, a nomsoi
# that runs from the unpacked tree and prints the project's version, and a host built against the
# unpacked tree with find_package and with pkg-config.
set -euo pipefail
if [ "${NOMSOI_SANITIZE:-OFF}" = "ON" ]; then
  echo "deb_package: skipped: a sanitized build is never packaged"
  exit 77
fi
: "${NOMSOI_SOURCE_DIR:?NOMSOI_SOURCE_DIR must name the source tree}"
: "${NOMSOI_BINARY_DIR:?NOMSOI_BINARY_DIR must name the build tree}"
work=$(cd "$(mktemp -d)" && pwd -P)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}

# The version is written in one place: the project() line.
version=$(sed -n 's/^project(NOMVGXGenBase VERSION \([0-9.]*\).*/\1/p' "$NOMSOI_SOURCE_DIR/CMakeLists.txt")
[ -n "$version" ] || fail "no version in the project() line"

# The package, made in a directory of the test's own so the build tree gets no package files.
[ -f "$NOMSOI_BINARY_DIR/CPackConfig.cmake" ] || fail "no CPackConfig.cmake in $NOMSOI_BINARY_DIR"
cpack -G DEB --config "$NOMSOI_BINARY_DIR/CPackConfig.cmake" -B "$work/dist" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; fail "cpack -G DEB failed"; }
debs=("$work"/dist/*.deb)
if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then fail "expected one .deb in $work/dist: ${debs[*]}"; fi
deb=${debs[0]}
arch=$(dpkg --print-architecture)
[ "$(basename "$deb")" = "nomvgxgenbase_${version}_${arch}.deb" ] || fail "package file $(basename "$deb")"

# Control fields: name and version from the project, dependencies computed from the binaries.
field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = nomvgxgenbase ] || fail "Package: $(field Package)"
[ "$(field Version)" = "$version" ] || fail "Version: $(field Version), project $version"
[ "$(field Architecture)" = "$arch" ] || fail "Architecture: $(field Architecture)"
for name in Maintainer Section Description; do
  [ -n "$(field "$name")" ] || fail "empty $name field"
done
depends=$(field Depends)
[ -n "$depends" ] || fail "empty Depends field"
for lib in libpugixml libsqlite3 libpq libssl libjemalloc2 libstdc++6; do
  grep -q "\(^\|, \)${lib}[^,]* (>= [^)]*)" <<<"$depends" || fail "Depends names no $lib with a version: $depends"
done

# The package holds exactly what `cmake --install` installs (under /usr).
dpkg-deb -x "$deb" "$work/root"
cmake --install "$NOMSOI_BINARY_DIR" --prefix "$work/installed" >/dev/null
listing() { (cd "$1" && find . ! -type d | sed 's|^\./||' | LC_ALL=C sort); }
listing "$work/installed" >"$work/installed.txt"
listing "$work/root/usr" >"$work/packaged.txt"
diff -u "$work/installed.txt" "$work/packaged.txt" >&2 || fail "package contents differ from cmake --install (--- installed, +++ packaged)"
[ -z "$(find "$work/root" -mindepth 1 -maxdepth 1 ! -name usr)" ] || fail "files outside /usr"
# Of the programs only nomsoi is installed: no test binary, no benchmark.
programs=$(cd "$work/root/usr/bin" && find . -mindepth 1 | sed 's|^\./||' | LC_ALL=C sort | tr '\n' ' ')
[ "$programs" = "nomsoi " ] || fail "usr/bin holds $programs"
grep -q '^share/doc/nomvgxgenbase/copyright$' "$work/packaged.txt" || fail "no copyright file"

# nomsoi runs from the unpacked tree, its libraries found through its own run path.
nomsoi="$work/root/usr/bin/nomsoi"
out=$(env -u LD_LIBRARY_PATH "$nomsoi" --version 2>&1) || fail "nomsoi --version failed: $out"
[ "$out" = "nomsoi $version" ] || fail "nomsoi --version printed '$out', expected 'nomsoi $version'"
unresolved=$(env -u LD_LIBRARY_PATH ldd "$nomsoi" | grep 'not found' || true)
[ -z "$unresolved" ] || fail "nomsoi's libraries not found: $unresolved"

# A host built against the unpacked tree: the embedding example, or the consumer until it exists.
example="$NOMSOI_SOURCE_DIR/examples/embed"
[ -d "$example" ] || example="$NOMSOI_SOURCE_DIR/examples/consumer"
exe=$(sed -n 's/^ *add_executable(\([A-Za-z0-9_-]*\).*/\1/p' "$example/CMakeLists.txt" | head -n 1)
[ -n "$exe" ] || fail "no executable in $example/CMakeLists.txt"
# run_example WHAT PROGRAM...: runs the example and checks its result. The embedding example packs
# a copy of examples/package; the consumer connects to a database that does not exist.
run_example() {
  local what=$1 out status=0
  shift
  if [ "$(basename "$example")" = embed ]; then
    rm -rf "$work/ex" "$work/out-$what"
    cp -r "$NOMSOI_SOURCE_DIR/examples" "$work/ex"
    out=$("$@" "$work/ex/package/SOI.vgxXml" "$work/out-$what" 2>&1) || status=$?
    [ "$status" -eq 0 ] || fail "$what: embed exited with $status: $out"
    [ "$(head -n 1 <<<"$out")" = "NOMVGXGenBase $version" ] || fail "$what: embed printed: $out"
    if [ ! -f "$work/out-$what/Cart.vgxXml" ] || [ ! -f "$work/out-$what/Cart.vgxGeom" ]; then
      fail "$what: embed packed no Cart.vgxXml and Cart.vgxGeom: $out"
    fi
  else
    out=$(NOMZUB_SERVER="sqlite:$work/missing.db" NOMZUB_LOG="$work/$what.log" \
          NOMZUB_LOG_FORMAT=raw "$@" 2>&1) || status=$?
    [ "$status" -eq 0 ] || fail "$what: consumer exited with $status: $out"
    [ "$out" = "ConnectServer=0 DisconnectServer=1" ] || fail "$what: consumer printed '$out'"
  fi
}

# find_package through CMAKE_PREFIX_PATH.
cmake -S "$example" -B "$work/build-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/root/usr" \
  >"$work/cmake.log" 2>&1 || { cat "$work/cmake.log" >&2; fail "configuring $example failed"; }
cmake --build "$work/build-cmake" >"$work/build.log" 2>&1 ||
  { cat "$work/build.log" >&2; fail "building $example with find_package failed"; }
run_example find_package "$work/build-cmake/$exe"

# pkg-config through PKG_CONFIG_PATH; the program finds the libraries through the loader's path.
pc=$(find "$work/root/usr" -name NOMVGXGenBase.pc)
[ -n "$pc" ] || fail "no NOMVGXGenBase.pc in the package"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$pc")
[ "$(pkg-config --modversion NOMVGXGenBase)" = "$version" ] || fail "pkg-config version $(pkg-config --modversion NOMVGXGenBase)"
libdir=$(pkg-config --variable=libdir NOMVGXGenBase)
[ -f "$libdir/libNOMVGXGenBase.so" ] || fail "pkg-config libdir $libdir holds no libNOMVGXGenBase.so"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 "$example"/*.cpp -o "$work/$exe-pc" $(pkg-config --cflags --libs NOMVGXGenBase) \
  >"$work/pc.log" 2>&1 || { cat "$work/pc.log" >&2; fail "building $example with pkg-config failed"; }
run_example pkg-config env LD_LIBRARY_PATH="$libdir" "$work/$exe-pc"
echo "deb_package: ok ($(basename "$deb"), Depends: $depends)"
