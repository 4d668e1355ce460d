#!/usr/bin/env bash
# End-to-end measurement of `nomsoi dump --mapping` on a synthetic project of 10,000 products:
# each stage's time (from the log's timestamps), the documents generated per second, and the
# peak memory (/usr/bin/time -v). Then the per-stage micro-benchmarks of dump_bench.
#
#   bench/dump_bench.sh [BUILD_DIR] [PRODUCTS]     (default build/release, 10000)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
products=${2:-10000}
nomsoi="$build/tools/nomsoi/nomsoi"
bench="$build/bench/dump_bench"
for bin in "$nomsoi" "$bench"; do
  [ -x "$bin" ] || { echo "dump_bench.sh: $bin not built (cmake --build $build)" >&2; exit 2; }
done
[ -x /usr/bin/time ] || { echo "dump_bench.sh: /usr/bin/time is missing (package time)" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export NOMZUB_CACHE="$work/cache"
db="sqlite:$work/plan.db"
"$bench" make-db "$db" "$products"

/usr/bin/time -v -o "$work/time" "$nomsoi" --log "$work/log" --log-format text dump \
  --server "$db" --login bench --password bench --project Synthetic --out "$work/soi" --mapping

# Milliseconds since midnight of the first log line that contains the text.
at() {
  grep -m1 -F -- "$1" "$work/log" | cut -c12-23 |
    awk -F: '{ printf "%d\n", ($1 * 3600 + $2 * 60 + $3) * 1000 + 0.5 }'
}
connect0=$(at 'ConnectServer -->'); connect1=$(at 'ConnectServer <--')
generate0=$(at 'DumpVGXPackage ->>'); generate1=$(at 'generated package')
pack1=$(at 'Updation of relative paths done')
map0=$(at 'GenerateMappingXML -->'); map1=$(at '<-- GenerateMappingXML')
generation=$((generate1 - generate0))
echo "products:            $products"
echo "connect and load:    $((connect1 - connect0)) ms"
echo "generation:          $generation ms ($((products * 1000 / (generation > 0 ? generation : 1))) documents/s)"
echo "Pack & Go:           $((pack1 - generate1)) ms"
echo "mapping:             $((map1 - map0)) ms"
grep -E 'Elapsed \(wall clock\)|Maximum resident set size' "$work/time" | sed 's/^\t//'
echo "SOI directory:       $(ls "$work/soi" | wc -l) files"
"$bench" --benchmark_counters_tabular=true
