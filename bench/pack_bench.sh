#!/usr/bin/env bash
# Pack & Go benchmark: `nomsoi pack` against `cp -r` of the same files, side by side in one run.
#
#   bench/pack_bench.sh [--runs N] [make_package.py options...]
#
# Builds nomsoi with the release preset, writes a synthetic package (by default the target case:
# fan-out 10, depth 4 = 11,110 product documents of 1 KiB with 64 KiB geometry each, no sharing),
# reads it once to warm the page cache, then runs N rounds (default 3) of `cp -r` and
# `nomsoi pack` in alternating order into fresh directories. Prints the median wall times, their
# ratio and nomsoi's peak resident memory (GNU time).
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
cp "$work/src/package/SOI.vgxXml" "$work/SOI.vgxXml.pristine"
cp "$work/src/package/SOI.vgxView" "$work/SOI.vgxView.pristine"
files=$(find "$work/src" -type f | wc -l)
bytes=$(du -sb "$work/src" | cut -f1)
find "$work/src" -type f -exec cat {} + >/dev/null

now() { echo "$EPOCHREALTIME"; }
calc() { awk "BEGIN { printf \"%.6f\\n\", $1 }"; }

run_cp() {
  local start end
  start=$(now)
  cp -r "$work/src" "$work/cp"
  end=$(now)
  calc "$end - $start" >>"$work/cp.times"
  rm -rf "$work/cp"
}

run_pack() {
  local start end copied
  cp "$work/SOI.vgxXml.pristine" "$work/src/package/SOI.vgxXml"
  cp "$work/SOI.vgxView.pristine" "$work/src/package/SOI.vgxView"
  start=$(now)
  /usr/bin/time -f '%M' -o "$work/rss" "$nomsoi" --log-format raw --log "$work/pack.log" pack \
    --main "$work/src/package/SOI.vgxXml" --view "$work/src/package/SOI.vgxView" \
    --out "$work/pack" 2>>"$work/pack.err"
  end=$(now)
  calc "$end - $start" >>"$work/pack.times"
  cat "$work/rss" >>"$work/pack.rss"
  copied=$(find "$work/pack" -type f | wc -l)
  # Everything but the main document and the view file lands in the SOI directory.
  [ "$copied" -eq $((files - 2)) ] || {
    echo "pack_bench: nomsoi copied $copied files, expected $((files - 2))" >&2
    exit 1
  }
  rm -rf "$work/pack"
}

for ((i = 1; i <= runs; i++)); do
  if ((i % 2)); then
    run_cp
    run_pack
  else
    run_pack
    run_cp
  fi
done

median() { sort -n "$1" | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}'; }
cp_time=$(median "$work/cp.times")
pack_time=$(median "$work/pack.times")
peak_kib=$(sort -n "$work/pack.rss" | tail -1)
documents=$(find "$work/src/library" -name '*.vgxXml' | wc -l)
printf 'package:          %d product documents, %d files, %.1f MiB (%s)\n' "$documents" "$files" \
  "$(calc "$bytes / 1048576")" "${package_options[*]}"
printf 'cp -r:            %.3f s (median of %d)\n' "$cp_time" "$runs"
printf 'nomsoi pack:      %.3f s (median of %d)\n' "$pack_time" "$runs"
printf 'ratio pack/cp:    %.2f\n' "$(calc "$pack_time / $cp_time")"
printf 'nomsoi peak RSS:  %.1f MiB\n' "$(calc "$peak_kib / 1024")"
