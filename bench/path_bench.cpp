// Module path to native path (nomplat::ToNativePath) on a real directory: the cost of a reference
// of many components ("a\a\...\a\f.vgxXml", the argument is the number of components) whose
// first component does or does not exist in another case, and of the everyday case of a short
// path whose last name differs in case from the file on disk. Also the way back
// (nomplat::ToModulePath), which the generator takes for every file it writes.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/paths.h"

namespace {

// A temporary directory mapped to drive C:, removed at exit.
class Drive {
 public:
  Drive() {
    std::string templ = (std::filesystem::temp_directory_path() / "nom-path-bench-XXXXXX").string();
    if (mkdtemp(templ.data()) == nullptr) std::abort();
    dir_ = templ;
    nomplat::ResetPathMaps();
    nomplat::SetCaseInsensitiveLookup(true);
    nomplat::MapDrive('C', dir_);
  }
  ~Drive() {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
    nomplat::ResetPathMaps();
  }
  std::string Sub(const std::string& relative) const { return dir_ + "/" + relative; }

 private:
  std::string dir_;
};

void Touch(const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  if (FILE* f = std::fopen(path.c_str(), "w")) std::fclose(f);
}

std::string DeepPath(int64_t components) {
  std::string path = "C:\\";
  for (int64_t i = 0; i < components; ++i) path += "a\\";
  return path + "f.vgxXml";
}

void Resolve(benchmark::State& state, const std::string& modulePath) {
  std::string native;
  DWORD error = 0;
  for (auto _ : state) {
    if (!nomplat::ToNativePath(modulePath, &native, &error)) state.SkipWithError("not mapped");
    benchmark::DoNotOptimize(native);
  }
  state.counters["bytes"] = static_cast<double>(modulePath.size());
}

// No component exists: one look-up in the drive's directory, the rest kept as written.
void BM_ToNativePath_DeepMissing(benchmark::State& state) {
  Drive drive;
  Resolve(state, DeepPath(state.range(0)));
}
BENCHMARK(BM_ToNativePath_DeepMissing)
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMillisecond);

// The first two components exist as "A\A": found in another case, then the rest as written.
void BM_ToNativePath_DeepCaseMismatch(benchmark::State& state) {
  Drive drive;
  Touch(drive.Sub("A/A/seed"));
  Resolve(state, DeepPath(state.range(0)));
}
BENCHMARK(BM_ToNativePath_DeepCaseMismatch)
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(8000)
    ->Arg(16000)
    ->Unit(benchmark::kMillisecond);

// "C:\Pkg\Sub\PART.VGXXML" for Pkg/Sub/Part.vgxXml: the usual reference to a product document.
void BM_ToNativePath_ShortCaseMismatch(benchmark::State& state) {
  Drive drive;
  Touch(drive.Sub("Pkg/Sub/Part.vgxXml"));
  Resolve(state, "C:\\Pkg\\Sub\\PART.VGXXML");
}
BENCHMARK(BM_ToNativePath_ShortCaseMismatch)->Unit(benchmark::kMicrosecond);

// "C:\Pkg\Sub\Part.vgxXml" exactly as on disk: one look-up of the whole path.
void BM_ToNativePath_ShortExact(benchmark::State& state) {
  Drive drive;
  Touch(drive.Sub("Pkg/Sub/Part.vgxXml"));
  Resolve(state, "C:\\Pkg\\Sub\\Part.vgxXml");
}
BENCHMARK(BM_ToNativePath_ShortExact)->Unit(benchmark::kMicrosecond);

// The module path of a file in the drive's directory, as the generator names what it wrote.
void BM_ToModulePath_Short(benchmark::State& state) {
  Drive drive;
  const std::string native = drive.Sub("Pkg/Sub/Part.vgxXml");
  std::string modulePath;
  for (auto _ : state) {
    if (!nomplat::ToModulePath(native, &modulePath)) state.SkipWithError("no module path");
    benchmark::DoNotOptimize(modulePath);
  }
}
BENCHMARK(BM_ToModulePath_Short)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
