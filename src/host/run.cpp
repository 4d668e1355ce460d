// The run of the module as the host makes it safe: nothing outside the output directory changes,
// a failed or interrupted run leaves the main document and view file as they were, and the exit
// status says whether the package is complete.
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "NOMSOIUtility.h"
#include "host_internal.h"
#include "journal.h"
#include "module_thread.h"
#include "monitor.h"
#include "outcome.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"

namespace nomsoi {
namespace {

// Where the module's save of file lands: in place when it lies in out or the input need not stay
// untouched, else in out under its own name.
std::string SavedAs(const std::string& file, const std::string& out, bool keep_input) {
  if (file.empty() || !keep_input || LiesDirectlyIn(file, out)) return "";
  return out + "\\" + nomplat::PathFindFileNameA(file.c_str());
}

void PrintPlan(const PreflightResult& plan) {
  for (const PlannedItem& item : plan.items) {
    if (item.present) {
      std::printf("copy %s '%s' -> '%s'\n", ItemKindName(item.kind), item.source.c_str(),
                  item.target.c_str());
    } else {
      std::printf("missing %s '%s' (named by '%s')\n", ItemKindName(item.kind), item.source.c_str(),
                  item.referrer.c_str());
    }
  }
}

int FinishDryRun(const ModuleRun& run, const PreflightResult& plan, bool quiet) {
  PrintPlan(plan);
  uint64_t counts[3] = {0, 0, 0};
  uint64_t missing = 0;
  std::set<std::string> targets;
  for (const PlannedItem& item : plan.items) {
    if (!item.present) {
      ++missing;
    } else if (targets.insert(item.target).second) {
      ++counts[static_cast<int>(item.kind)];
    }
  }
  if (quiet && missing == 0) return kExitOk;
  std::fprintf(
      stderr,
      "nomsoi %s: dry run: %llu documents, %llu geometry files, %llu resources, %llu "
      "bytes to copy; %llu missing; %llu references followed; output %s; nothing "
      "written\n",
      run.command.c_str(), static_cast<unsigned long long>(counts[0]),
      static_cast<unsigned long long>(counts[1]), static_cast<unsigned long long>(counts[2]),
      static_cast<unsigned long long>(plan.bytes), static_cast<unsigned long long>(missing),
      static_cast<unsigned long long>(plan.visits), run.out.c_str());
  return missing > 0 ? kExitMissing : kExitOk;
}

}  // namespace

ModuleRun PackRun(const std::string& main_path, const std::string& view_path,
                  const std::string& out) {
  ModuleRun run;
  run.command = "pack";
  run.walk = PackWalk::kPackNGo;
  run.main_path = main_path;
  run.view_path = view_path;
  run.out = out;
  run.call = [main_path, view_path, out](HRESULT* result, bool* has_result) {
    OpenPackage(main_path, view_path);
    NOMSOIUtility utility;
    *result = utility.PackNGo(out);
    *has_result = true;
    return 0;
  };
  return run;
}

namespace {

// The run behind RunModuleSafely: fills *result's outcome and module result, returns the exit
// status.
int RunSafely(const ModuleRun& run, const SafetyOptions& safety, RunResult* result) {
  const bool quiet = CurrentVerbosity() == Verbosity::kQuiet;
  if (!safety.confine.empty()) nomplat::SetConfinementRoots(safety.confine);
  const std::string out_native = NativePath(run.out);

  if (!safety.dry_run) {
    for (const std::string& restored : Journal::RecoverInterrupted(out_native)) {
      std::fprintf(stderr, "nomsoi %s: put back '%s' as it was before an interrupted run\n",
                   run.command.c_str(), restored.c_str());
    }
  }

  const std::string main_saved_as = SavedAs(run.main_path, run.out, run.keep_input);
  const std::string view_saved_as = SavedAs(run.view_path, run.out, run.keep_input);
  std::map<std::string, std::string> redirects;
  if (!main_saved_as.empty()) redirects[run.main_path] = main_saved_as;
  if (!view_saved_as.empty()) redirects[run.view_path] = view_saved_as;

  // Copies are made ahead of the module only where the default Env remembers them, so that the
  // module's own copy then finds its work done; into a new output directory from the preflight
  // on.
  const bool copy_ahead = run.preflight && !safety.dry_run &&
                          nomplat::CurrentEnv() == nomplat::Env::Default() &&
                          !nomplat::ReadsConfined();
  std::unique_ptr<StagedCopies> staged;
  std::optional<uint64_t> free_before;  // the free space before anything is staged
  if (copy_ahead) {
    uint64_t free = 0;
    if (nomplat::CurrentEnv()->FreeBytes(run.out, &free) == 0) free_before = free;
    staged = std::make_unique<StagedCopies>(
        run.out, std::vector<std::string>{main_saved_as.empty() ? run.main_path : main_saved_as,
                                          view_saved_as.empty() ? run.view_path : view_saved_as});
  }
  PreflightResult plan;
  uint64_t depth = run.stack_depth;
  if (run.preflight) {
    PreflightOptions options;
    options.walk = run.walk;
    options.main_path = run.main_path;
    options.view_path = run.view_path;
    options.soi_directory = run.out;
    options.main_saved_as = main_saved_as;
    options.view_saved_as = view_saved_as;
    options.max_visits = safety.max_visits;
    options.max_depth = safety.max_depth;
    options.allow_collisions = safety.force;
    if (staged && staged->active()) {
      options.free_bytes = free_before;
      options.on_planned = [&staged](size_t index, const PlannedItem& item,
                                     const std::string& native_source) {
        staged->Planned(index, item, native_source);
      };
    }
    plan = RunPreflight(options);
    if (plan.Refused()) {
      for (const PreflightProblem& problem : plan.problems)
        std::fprintf(stderr, "nomsoi %s: refused: %s\n", run.command.c_str(),
                     problem.message.c_str());
      return kExitUsage;
    }
    if (safety.dry_run) return FinishDryRun(run, plan, quiet);
    depth = plan.depth;
  }

  // A plan that the run's own copies may invalidate is left to the module alone: what was
  // staged goes, and nothing is copied ahead.
  if (staged && plan.meets_own_copies) staged->Discard();
  const std::vector<size_t> made = staged ? staged->Commit() : std::vector<size_t>();
  staged.reset();
  if (int status = PrepareOutputDirectory(run.command, "--out", run.out)) return status;
  std::vector<std::string> rewritten;
  if (run.rewritten.empty()) {
    rewritten.push_back(NativePath(main_saved_as.empty() ? run.main_path : main_saved_as));
    if (!run.view_path.empty())
      rewritten.push_back(NativePath(view_saved_as.empty() ? run.view_path : view_saved_as));
  } else {
    for (const std::string& file : run.rewritten) rewritten.push_back(NativePath(file));
  }
  Journal journal;
  const std::string problem = journal.Begin(out_native, rewritten);
  if (!problem.empty()) return Refuse(run.command, "--out: " + problem);

  HRESULT& module_result = result->module_result;
  bool& has_result = result->has_module_result;
  int early = 0;
  Outcome& outcome = result->outcome;
  {
    RunMonitor monitor(run.preflight ? &plan : nullptr, redirects, !safety.report.empty());
    const auto body = [&] {
      // Started on the module's thread, so that the copying thread blocks the same signals.
      std::unique_ptr<CopyAhead> ahead;
      if (copy_ahead) {
        ahead = std::make_unique<CopyAhead>(plan, run.out, !plan.meets_own_copies, made);
      }
      monitor.SetCopyAhead(ahead.get());
      struct Detach {
        RunMonitor& monitor;
        ~Detach() { monitor.SetCopyAhead(nullptr); }
      } detach{monitor};
      return run.call(&module_result, &has_result);
    };
    const int status = RunOnModuleThread(StackForDepth(depth), body, [&](int) {
      journal.Restore();
      std::fprintf(stderr,
                   "\nnomsoi %s: interrupted; the main document and view file are as they "
                   "were before the run\n",
                   run.command.c_str());
    });
    outcome = monitor.TakeOutcome();
    early = status < 0 ? kExitFailed : status;
  }
  if (early != 0) {
    journal.Restore();
    return early;
  }

  const int status = ExitStatusOf(outcome);
  if (!outcome.failed.empty()) {
    journal.Restore();
  } else {
    journal.Commit();
  }
  if (!quiet || status != kExitOk)
    PrintSummary(run.command, outcome, run.out, has_result ? &module_result : nullptr);
  if (!outcome.failed.empty()) {
    std::fprintf(stderr,
                 "nomsoi %s: a copy or save failed: the main document and view file were put "
                 "back as they were\n",
                 run.command.c_str());
  }
  if (!safety.report.empty()) {
    const std::string report_problem = WriteReport(safety.report, run.command, status, outcome,
                                                   run.out, has_result ? &module_result : nullptr);
    if (!report_problem.empty()) {
      std::fprintf(stderr, "nomsoi %s: %s\n", run.command.c_str(), report_problem.c_str());
      return kExitFailed;
    }
  }
  return status;
}

}  // namespace

RunResult RunModuleSafely(const ModuleRun& run, const SafetyOptions& safety) {
  RunResult result;
  result.status = RunSafely(run, safety, &result);
  return result;
}

}  // namespace nomsoi
