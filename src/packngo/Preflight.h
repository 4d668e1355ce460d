// The check a host makes before it hands a package on disk to Pack & Go: it walks the package as
// Pack & Go will, with the module's own resolution of references, without recursion and without
// writing or logging anything, and says what would be copied where, what is missing, and whether
// the run is safe to start (no reference cycle, no two files landing on one name, nothing outside
// the confinement roots, a bounded number of visits and nesting depth, room on the disk).
#ifndef NOM_PACKNGO_PREFLIGHT_H_
#define NOM_PACKNGO_PREFLIGHT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "NOMSOITypes.h"

namespace nomsoi {

// Which walk the package will get: PackNGo's (list children rewritten, shared resources of the
// main document and view file gathered) or the ODT mode's (no resources).
enum class PackWalk { kPackNGo, kOdt };

struct PreflightOptions {
  PackWalk walk = PackWalk::kPackNGo;
  // The main document as the module will receive it (module path).
  std::string main_path;
  // The view file, or "" when the package has none (PackNGo only).
  std::string view_path;
  // The SOI directory as the module will receive it.
  std::string soi_directory;
  // Where the main document and view file will be saved when not in place ("" : in place). A
  // host that keeps the input untouched saves them into the SOI directory instead.
  std::string main_saved_as;
  std::string view_saved_as;
  // Refuse when the walk would follow more references than this (shared documents count once
  // per path to them).
  uint64_t max_visits = 1000000;
  // Refuse when product documents nest deeper than this.
  uint64_t max_depth = 200000;
  // Let two different files land on one name (the later copy wins, as Pack & Go does).
  bool allow_collisions = false;
  // Check the free space of the SOI directory's file system.
  bool check_space = true;
};

enum class ItemKind { kDocument, kGeometry, kResource };

// One file the run will copy, or would copy if it could be read.
struct PlannedItem {
  ItemKind kind = ItemKind::kDocument;
  std::string source;    // resolved module path of the file
  std::string target;    // module path it is copied to
  std::string referrer;  // the document whose reference names it
  bool present = false;  // the source can be read
  uint64_t size = 0;     // bytes, when present
};

// Why a run must not start; each names the documents or files involved.
enum class Refusal {
  kCycle,
  kCollision,
  kOutsideConfinement,
  kTooManyVisits,
  kTooDeep,
  kNoSpace,
};

struct PreflightProblem {
  Refusal kind;
  std::string message;
};

struct PreflightResult {
  // Every distinct (source, target) pair, in the order the walk first meets it.
  std::vector<PlannedItem> items;
  // References the walk follows, counting a shared document once per path to it (saturates at
  // UINT64_MAX).
  uint64_t visits = 0;
  // Deepest nesting of product documents below the main document (0: no product document).
  uint64_t depth = 0;
  // Bytes the copies need: each distinct target once, files already in place not counted.
  uint64_t bytes = 0;
  // Empty when the run may start.
  std::vector<PreflightProblem> problems;

  bool Refused() const { return !problems.empty(); }
};

// Walks the package. Reads documents through the DOM wrapper and the current Env; writes
// nothing and logs nothing (the module's own log lines of the resolution are held back).
// Stops at the first cycle, at max_visits or max_depth.
NOM_API PreflightResult RunPreflight(const PreflightOptions& options);

// "document", "geometry" or "resource".
inline const char* ItemKindName(ItemKind kind) {
  return kind == ItemKind::kDocument   ? "document"
         : kind == ItemKind::kGeometry ? "geometry"
                                       : "resource";
}

}  // namespace nomsoi

#endif  // NOM_PACKNGO_PREFLIGHT_H_
