// GenerateMappingXML over a large identifier cache: 100,000 objects with 1 to 3 ident paths each,
// 20,000 operations with 5 views each. Reports the time per mapping file and the process's peak
// resident memory.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "NOMSOIUtility.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBObjectFactory.h"
#include "services/NOMZUBVGXIdentCache.h"

namespace {

// Swallows the module's log lines so the benchmark measures the mapping alone.
class NullSink : public nomzub::LogSink {
 public:
  void Write(const std::string&, int32_t) override {}
};

void FillCache(int objects, int operations, int viewsPerOperation) {
  nomzub::IdentCacheClear();
  nomzub::ClearObjects();
  char oid[32];
  for (int i = 0; i < objects; ++i) {
    std::snprintf(oid, sizeof oid, "P-%06d", i);
    for (int k = 0; k <= i % 3; ++k) {
      nomzub::IdentCacheAddObjectPath(
          oid, "ProductList/Line/Station" + std::to_string(i % 50) + "/Part." + std::to_string(k));
    }
    nomzub::RegisterObject(oid, std::string("Part ") + oid);
  }
  for (int i = 0; i < operations; ++i) {
    std::snprintf(oid, sizeof oid, "OP-%06d", i);
    nomzub::IdentCacheSetOperationPath(oid, std::string("Process/") + oid);
    nomzub::RegisterObject(oid, std::string("Operation ") + oid);
    for (int v = 0; v < viewsPerOperation; ++v) {
      nomzub::IdentCacheSetProcessIdent(std::string(oid) + ".V" + std::to_string(v),
                                        "View " + std::to_string(v), oid);
    }
  }
}

void BM_GenerateMappingXML(benchmark::State& state) {
  NullSink sink;
  nomzub::LogSink* previous = nomzub::SetLogSink(&sink);
  FillCache(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), 5);
  char dirTemplate[] = "/tmp/nomsoi-mapping-bench-XXXXXX";
  const std::string dir = mkdtemp(dirTemplate);
  NOMSOIUtility utility;
  for (auto _ : state) {
    benchmark::DoNotOptimize(utility.GenerateMappingXML("Z:" + dir));
  }
  std::remove((dir + "/Mapping.xml").c_str());
  rmdir(dir.c_str());
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
  nomzub::SetLogSink(previous);
}

BENCHMARK(BM_GenerateMappingXML)
    ->Args({100000, 20000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
