// What pack, odt and dump share around the module: the safety options, the preflight, the
// journal of the main document and view file, the module's own thread, the outcome and the exit
// status.
#ifndef NOM_TOOLS_NOMSOI_PACKING_H_
#define NOM_TOOLS_NOMSOI_PACKING_H_

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "NOMSOITypes.h"
#include "packngo/Preflight.h"

namespace nomsoi {

struct SafetyOptions {
  std::vector<std::string> confine;  // --confine DIR (native directories)
  uint64_t max_visits = 1000000;
  uint64_t max_depth = 200000;
  bool force = false;
  bool dry_run = false;
  std::string report;  // --report FILE, "" for none
};

// Declares --report on command, and with preflight also --confine, --max-visits, --max-depth,
// --force and --dry-run.
void AddSafetyOptions(CLI::App& command, SafetyOptions& options, bool preflight);

// One run of the module over a package, as the host makes it.
struct ModuleRun {
  std::string command;  // "pack", "odt" or "dump", for messages
  PackWalk walk = PackWalk::kPackNGo;
  bool preflight = true;  // walk the package first (pack, and odt unless light)
  std::string main_path;  // module paths, full
  std::string view_path;  // "" for none
  std::string out;
  // The files the module rewrites in place when the input is not to be kept untouched; dump
  // names the package it generates. Empty: main_path and view_path.
  std::vector<std::string> rewritten;
  bool keep_input = true;    // saves of a main document or view file outside out land in out
  uint64_t stack_depth = 0;  // nesting to make room for when there is no preflight
  // Calls the module, on the module's thread: stores its result in *result when the call has
  // one (and sets *has_result). Returns 0, or an exit status that ends the command at once
  // without a summary (the call has said why), the package put back as it was.
  std::function<int(HRESULT* result, bool* has_result)> call;
};

// Runs it: confinement, recovery of an interrupted run, preflight (refusal: exit 2), dry run,
// output directory, journal, the module on its own thread, restore on failure or interruption,
// summary, report. Returns the exit status.
int RunModuleSafely(const ModuleRun& run, const SafetyOptions& safety);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_PACKING_H_
