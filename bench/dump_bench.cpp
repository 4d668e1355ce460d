// Generation of a synthetic planning project of 10,000 products, stage by stage: loading the
// project (connect, select, filter), generating the package, Pack & Go, and the mapping file.
//
//   dump_bench make-db URL [PRODUCTS]   stores the synthetic project "Synthetic" (default 10,000
//                                       products) and the account bench/bench at URL, then exits
//   dump_bench [benchmark flags]        measures the stages on a fresh SQLite database in a
//                                       temporary directory (bench/dump_bench.sh runs both)
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "NOMSOIUtility.h"
#include "NOMZUBProxy/planning_admin.h"
#include "services/NOMZUBConnector.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGenerator.h"

namespace fs = std::filesystem;

namespace {

constexpr int kProducts = 10000;
constexpr char kProject[] = "Synthetic";

// A temporary directory holding the database, the product cache and the SOI directories.
struct Workspace {
  Workspace() {
    std::string templ = (fs::temp_directory_path() / "nom-bench-XXXXXX").string();
    dir = mkdtemp(templ.data());
    setenv("NOMZUB_CACHE", (dir + "/cache").c_str(), 1);
    url = "sqlite:" + dir + "/plan.db";
    ok = nomzub::LoadSyntheticPlanningData(url, kProject, kProducts) == S_OK &&
         nomzub::AddPlanningAccount(url, "bench", "bench") == S_OK;
  }
  ~Workspace() { fs::remove_all(dir); }
  std::string dir, url;
  bool ok = false;
};

Workspace& TheWorkspace() {
  static Workspace workspace;
  return workspace;
}

bool Connect(NOMSOIUtility& utility) {
  nomzub::SetConfiguredServer(TheWorkspace().url);
  return utility.ConnectServer("bench", "bench", kProject, "") == 1;
}

void BM_ConnectAndLoad(benchmark::State& state) {
  NOMSOIUtility utility;
  for (auto _ : state) {
    if (!Connect(utility)) state.SkipWithError("cannot connect");
    utility.DisconnectServer();
  }
  state.counters["products/s"] =
      benchmark::Counter(kProducts, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Generate(benchmark::State& state) {
  NOMSOIUtility utility;
  if (!Connect(utility)) state.SkipWithError("cannot connect");
  std::string soi = TheWorkspace().dir + "/soi";
  for (auto _ : state) {
    if (utility.GenerateVGXFiles("", soi, "SOI", "") != S_OK) state.SkipWithError("generation");
  }
  state.counters["documents/s"] =
      benchmark::Counter(kProducts, benchmark::Counter::kIsIterationInvariantRate);
  utility.DisconnectServer();
}

// Pack & Go and the mapping file need a fresh package each time: generation runs untimed.
void BM_PackAndMap(benchmark::State& state, bool mapping) {
  NOMSOIUtility utility;
  if (!Connect(utility)) state.SkipWithError("cannot connect");
  for (auto _ : state) {
    state.PauseTiming();
    std::string soi = TheWorkspace().dir + "/soi-" + std::to_string(state.iterations());
    utility.GenerateVGXFiles("", soi, "SOI", "");
    NOMSOIUtility fresh;
    state.ResumeTiming();
    benchmark::DoNotOptimize(mapping ? fresh.GenerateMappingXML(soi) : fresh.PackNGo(soi));
  }
  state.counters["documents/s"] =
      benchmark::Counter(kProducts, benchmark::Counter::kIsIterationInvariantRate);
  utility.DisconnectServer();
}

BENCHMARK(BM_ConnectAndLoad)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Generate)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BM_PackAndMap, PackNGo, false)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);
BENCHMARK_CAPTURE(BM_PackAndMap, Mapping, true)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::string(argv[1]) == "make-db") {
    int products = argc >= 4 ? std::atoi(argv[3]) : kProducts;
    bool ok = nomzub::LoadSyntheticPlanningData(argv[2], kProject, products) == S_OK &&
              nomzub::AddPlanningAccount(argv[2], "bench", "bench") == S_OK;
    if (!ok)
      std::fprintf(stderr, "dump_bench: cannot create the synthetic project at %s\n", argv[2]);
    return ok ? 0 : 1;
  }
  // The stages log every document they handle; the measurement keeps those lines out.
  nomzub::ConfigureLog("/dev/null", nomzub::LogFormat::kRaw);
  if (!TheWorkspace().ok) {
    std::fprintf(stderr, "dump_bench: cannot create the synthetic project\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
