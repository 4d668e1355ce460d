// GenerateMappingXML over a large identifier cache: 100,000 objects with 1 to 3 ident paths each,
// 20,000 operations with 5 views each. Reports the time per mapping file, the resident memory the
// filled cache and object registry hold before the first call (cache_MiB), the process's peak
// while the mapping files are written (peak_MiB), and the difference (mapping_MiB).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
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

// A field of /proc/self/status in MiB ("VmRSS", "VmHWM"); 0 when it cannot be read.
double StatusMiB(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, field.size() + 1, field + ":") == 0) {
      return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024.0;
    }
  }
  return 0;
}

// Starts a new peak: the kernel forgets the high-water mark of the resident set.
void ResetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

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
  const double cache = StatusMiB("VmRSS");
  ResetPeak();
  for (auto _ : state) {
    benchmark::DoNotOptimize(utility.GenerateMappingXML("Z:" + dir));
  }
  const double peak = StatusMiB("VmHWM");
  std::remove((dir + "/Mapping.xml").c_str());
  rmdir(dir.c_str());
  state.counters["cache_MiB"] = cache;
  state.counters["peak_MiB"] = peak;
  state.counters["mapping_MiB"] = peak - cache;
  nomzub::SetLogSink(previous);
}

BENCHMARK(BM_GenerateMappingXML)
    ->Args({100000, 20000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
