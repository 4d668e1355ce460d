#!/usr/bin/env bash
# Pack & Go benchmark: `nomsoi pack` against `cp -r` of the same files, side by side in one run.
#
#   bench/pack_bench.sh [--runs N] [make_package.py options...]
#
# Builds nomsoi with the release preset, writes a synthetic package (by default the target case:
# fan-out 10, depth 4 = 11,110 product documents of 1 KiB with 64 KiB geometry each, no sharing),
# reads it once to warm the page cache, then runs N rounds (default 3) of `cp -r` and
# `nomsoi pack` in alternating order into fresh directories. Prints the median wall times, their
# ratio and nomsoi's peak resident memory (GNU time). bench/run shows these figures together with
# the project's other ones.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=3
if [ "${1:-}" = "--runs" ]; then
  runs=$2
  shift 2
fi
package_options=("$@")
[ ${#package_options[@]} -gt 0 ] ||
  package_options=(--fan-out 10 --depth 4 --doc-size 1024 --geometry-size 65536 --shared 0)
[ -x /usr/bin/time ] || {
  echo "pack_bench: GNU time (/usr/bin/time, Debian package 'time') is needed" >&2
  exit 2
}

cd "$root"
cmake --preset release >/dev/null
cmake --build --preset release --target nomsoi >/dev/null
nomsoi="$root/build/release/tools/nomsoi/nomsoi"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 "$root/bench/make_package.py" --out "$work/src" "${package_options[@]}"
mkdir "$work/scratch"
# The runs, their checks and the figures: bench/benchlib.py, which bench/run uses as well. A
# complete pack holds every file of the package: nomsoi also saves the packed main document and
# view file into its output.
python3 "$root/bench/benchlib.py" pack --nomsoi "$nomsoi" --src "$work/src" \
  --work "$work/scratch" --runs "$runs"
echo "package options:  ${package_options[*]}"
