// The host's side of the module: what a program that embeds NOMSOIUtility sets up around it, and
// the safe run that nomsoi makes. Everything here lives in namespace nomsoi; nomsoi itself is a
// command line over these functions and nothing else.
//
// A typical embedding program:
//   nomsoi::ConfigureLog("run.log", nomsoi::LogFormat::kRaw);
//   nomsoi::MapDrive('C', "/srv/plans");
//   nomsoi::ModuleRun run = nomsoi::PackRun("C:\\pkg\\SOI.vgxXml", "", "C:\\out");
//   nomsoi::RunResult result = nomsoi::RunModuleSafely(run, nomsoi::SafetyOptions{});
//   // result.status: 0 complete, 1 failed, 2 refused, 3 files missing; result.outcome: the files.
//
// Settings are process-wide, as the module's services are: set them before a run, not during one.
// Functions that return std::string return "" on success and otherwise a sentence saying what is
// wrong, for a message.
#ifndef NOMSOI_HOST_H_
#define NOMSOI_HOST_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "NOMSOITypes.h"

class NOMSOIUtility;

namespace nomsoi {

// ---- The library --------------------------------------------------------------------------

// The library's version, "MAJOR.MINOR.PATCH"; never null.
NOM_API const char* LibraryVersion();

// ---- Process settings ---------------------------------------------------------------------

// How log records are written: "time, level, message" lines, "level<TAB>message" lines, or one
// JSON object a line.
enum class LogFormat { kText, kRaw, kJsonl };

// Parses "text", "raw" or "jsonl" into *format; false (and *format unchanged) for anything else.
NOM_API bool ParseLogFormat(const std::string& name, LogFormat* format);
// Sends the log to target ("-" or "": standard error; else a file, created or appended to) in
// format. On failure the log stays where it was and the reason is returned.
NOM_API std::string ConfigureLog(const std::string& target, LogFormat format);
// How much the library says on standard error. kQuiet: errors only (refusals, failures, missing
// files; of a log that goes to standard error, only its error records). kNormal (the default):
// also a run's summary line and notes. kVerbose: also every level-2 record of the services (causes
// of failures, notes) when the log goes to a file; a log on standard error shows them anyway.
// A log written to a file is never filtered.
enum class Verbosity { kQuiet, kNormal, kVerbose };
NOM_API void SetVerbosity(Verbosity verbosity);
// The verbosity in force.
NOM_API Verbosity CurrentVerbosity();
// Writes buffered log records out now. False when the log's file cannot be written.
NOM_API bool FlushLog();

// Sets the code page of the module's narrow strings: 65001 (UTF-8), 1252, 932, 936, 949, 950 or
// another single-byte page iconv knows. The page in force stays on failure.
NOM_API std::string SetCodePage(uint32_t code_page);
// Maps the drive letter (A-Z, either case) to an existing native directory. Z: is "/" unless
// mapped.
NOM_API std::string MapDrive(char letter, const std::string& native_dir);
// Maps a network share "\\SERVER\SHARE" to an existing native directory.
NOM_API std::string MapShare(const std::string& share, const std::string& native_dir);
// Lets the module read only files whose real path (links resolved) lies in one of the native
// directories; any other read fails as access denied. A directory that does not exist contains
// nothing; an empty list lifts the confinement.
NOM_API void SetConfinementRoots(const std::vector<std::string>& native_dirs);
// Module paths: a relative path made full from the working directory, "." and ".." resolved by
// their text; a full path (rooted, drive or share) returned as it is.
NOM_API std::string FullPath(const std::string& path);
// The native path a module path names under the current maps; the path itself when it cannot be
// mapped.
NOM_API std::string NativePath(const std::string& module_path);

// ---- Inputs -------------------------------------------------------------------------------

// "" when the module path names a readable, well-formed XML document, else what is wrong with it
// ("does not exist", "is not well-formed XML: ... at line L, column C", ...).
NOM_API std::string XmlDocumentProblem(const std::string& module_path);
// "" when the module path is a directory or does not exist yet (it is then created by the run),
// else what is wrong with it. Creates nothing.
NOM_API std::string OutputDirectoryProblem(const std::string& module_path);
// Points the module's package handle at a package on disk: the main document and view file (""
// for none) that PackNGo will gather.
NOM_API void OpenPackage(const std::string& main_path, const std::string& view_path);

// ---- The planning data server -------------------------------------------------------------

// The longest password a login may carry, in bytes.
constexpr size_t kMaxPasswordBytes = 1024;

struct ServerLogin {
  std::string server;  // sqlite:PATH or postgresql://...
  std::string login;
  std::string password;
  std::string project;
  std::string filters;  // "" for everything
};

// Points the process's connector at login.server and calls utility.ConnectServer. Returns its
// result: 1 connected, 0 not (the log says which step failed).
NOM_API BOOL ConnectToServer(NOMSOIUtility& utility, const ServerLogin& login);
// The server address with its password hidden, for messages.
NOM_API std::string RedactedServer(const std::string& server);
// Creates the planning schema on the server, or upgrades an older one. S_OK or a failure code
// (the log says why).
NOM_API HRESULT InitPlanningDatabase(const std::string& server);
// InitPlanningDatabase, then loads the sample project AssemblyLine (replacing an earlier copy).
NOM_API HRESULT LoadSampleProject(const std::string& server);
// "" when the generator knows option, else why not, with the options it knows.
NOM_API std::string GeneratorOptionProblem(const std::string& option);
// Refuses to generate more than n product instances (0: the default limit).
NOM_API void SetMaxObjects(uint64_t n);

// ---- The preflight ------------------------------------------------------------------------

// Which walk the package will get: Pack & Go's (list children rewritten, shared resources of the
// main document and view file gathered) or the ODT mode's (no resources).
enum class PackWalk { kPackNGo, kOdt };

struct PlannedItem;

struct PreflightOptions {
  PackWalk walk = PackWalk::kPackNGo;
  // The main document as the module will receive it (module path).
  std::string main_path;
  // The view file, or "" when the package has none (Pack & Go only).
  std::string view_path;
  // The SOI directory as the module will receive it.
  std::string soi_directory;
  // Where the main document and view file will be saved when not in place ("": in place). A
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
  // The free bytes to check the copies against, when the caller measured them before it wrote
  // anything there itself (copies staged while the walk runs); unset: measured when the walk is
  // done.
  std::optional<uint64_t> free_bytes;
  // Called with each item as the walk plans it, before the walk goes on: its index in the
  // result's items, the item, and the native path of its source as the look-up found it ("" when
  // it cannot be mapped). Not called for a pair of source and target planned before. Null:
  // nothing is called.
  std::function<void(size_t index, const PlannedItem& item, const std::string& native_source)>
      on_planned;
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
  // The walk meets a file that the run's own copies change: a source that an earlier copy may
  // replace, or a file it looks for and does not find under the name an earlier copy creates.
  // The plan holds the files as they were before the run, so the module's walk may differ.
  bool meets_own_copies = false;

  bool Refused() const { return !problems.empty(); }
};

// Walks the package as Pack & Go will, with the module's own resolution of references. Reads
// documents; writes nothing and logs nothing. Stops at the first cycle, at max_visits or
// max_depth.
NOM_API PreflightResult RunPreflight(const PreflightOptions& options);

// "document", "geometry" or "resource".
inline const char* ItemKindName(ItemKind kind) {
  return kind == ItemKind::kDocument   ? "document"
         : kind == ItemKind::kGeometry ? "geometry"
                                       : "resource";
}

// ---- The safe run -------------------------------------------------------------------------

// Exit status of a run: every referenced file is in the output; a copy or save failed, the
// module failed for another cause or the server refused the connection; refused before the
// module ran; the run finished but referenced files were missing.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitMissing = 3;

struct SafetyOptions {
  std::vector<std::string> confine;  // native directories the package must lie in ("" none)
  uint64_t max_visits = 1000000;
  uint64_t max_depth = 200000;
  bool force = false;    // pack even when two files would land on one name
  bool dry_run = false;  // preflight only: print the plan on standard output, write nothing
  std::string report;    // native path of the JSON report, "" for none
};

// One run of the module over a package.
struct ModuleRun {
  std::string command;  // "pack", "odt" or "dump": the name messages start with
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
  // Calls the module, on the module's own thread: stores its result in *result when the call has
  // one (and sets *has_result). Returns 0, or an exit status that ends the run at once without a
  // summary (the call has said why); the package is then put back as it was.
  std::function<int(HRESULT* result, bool* has_result)> call;
};

// Pack & Go of the package on disk main_path (and view_path, "" for none) into out: the run
// nomsoi pack makes.
NOM_API ModuleRun PackRun(const std::string& main_path, const std::string& view_path,
                          const std::string& out);

// One file of the outcome.
struct OutcomeItem {
  std::string kind;      // "document", "geometry", "resource" or "save"
  std::string source;    // the file read (for a save: the document written)
  std::string target;    // where it went, or was to go
  std::string referrer;  // the document that names it, when known
  DWORD error = 0;       // the Windows error of a failure
};

struct Outcome {
  std::vector<OutcomeItem> copied;   // each target once, in order (kept when a report is asked)
  std::vector<OutcomeItem> missing;  // each source once
  std::vector<OutcomeItem> failed;   // each kind, source and target once
  uint64_t documents = 0;            // distinct targets copied, by kind
  uint64_t geometry = 0;
  uint64_t resources = 0;
  uint64_t bytes = 0;
  // Error lines the module logged for a stage that failed (generation, positions, mapping).
  std::vector<std::string> module_failures;
};

struct RunResult {
  int status = kExitOk;  // kExitOk, kExitFailed, kExitUsage or kExitMissing
  Outcome outcome;       // what the module did (empty when it did not run)
  bool has_module_result = false;
  HRESULT module_result = S_OK;  // the module call's own result, when it has one
};

// Runs it: confinement, recovery of an interrupted run, preflight (refusal: kExitUsage), dry run,
// output directory, journal of the main document and view file, the module on its own thread,
// restore on failure or interruption (SIGINT, SIGTERM), summary, report. Messages go to standard
// error as SetVerbosity says.
NOM_API RunResult RunModuleSafely(const ModuleRun& run, const SafetyOptions& safety);

// The exit status an outcome stands for: kExitFailed when something failed, else kExitMissing
// when something was missing, else kExitOk.
NOM_API int ExitStatusOf(const Outcome& outcome);
// Writes the outcome as JSON to the native path. "" or what went wrong.
NOM_API std::string WriteReport(const std::string& native_path, const std::string& command,
                                int status, const Outcome& outcome, const std::string& output,
                                const HRESULT* module_result);

// ---- A package after the run ----------------------------------------------------------------

// Why a reference keeps the package from being self-contained.
enum class VerifyProblemKind {
  kNotBare,  // it has a directory part, a drive or a share
  kMissing,  // a bare name, but no readable file of that name lies in the directory
};

// One reference that breaks the package.
struct VerifyProblem {
  VerifyProblemKind kind = VerifyProblemKind::kMissing;
  std::string document;     // the document's file name in the directory
  std::string reference;    // the value as written; for geometry, the geometry file's name
  std::string geometry_of;  // for geometry, the product document it belongs to; else ""

  // "document 'X' references 'Y': not a bare name", "document 'X' references 'Y': missing", or
  // for geometry "document 'X' references 'Y.vgxGeom' (geometry of 'Y.vgxXml'): missing".
  NOM_API std::string Message() const;
};

// A document that could not be checked because it could not be read as XML.
struct UnreadableDocument {
  std::string document;  // file name in the directory
  std::string problem;   // "is not well-formed XML", "cannot be read: ..."
};

struct VerifyResult {
  // Set when the directory cannot be checked at all: it is not there, is not a directory, cannot
  // be mapped, or holds no package document. Everything else is then empty.
  std::string refused;
  // The package documents checked, by file name in byte order.
  std::vector<std::string> documents;
  // Distinct references checked per document, geometry files included.
  uint64_t references = 0;
  // Distinct geometry files checked per document.
  uint64_t geometry = 0;
  // Documents that are not well-formed XML or cannot be read; their references are not checked.
  std::vector<UnreadableDocument> unreadable;
  // Every reference that breaks the package, document by document in name order; within a
  // document the IsInstanceOf values in document order (each followed by its geometry file), then
  // the Resource files, then the view file's Document; each distinct reference of a document once.
  std::vector<VerifyProblem> problems;

  // True when nothing was refused, unreadable or broken.
  bool SelfContained() const { return refused.empty() && unreadable.empty() && problems.empty(); }
};

// Checks the package in dir, a module path (drive and share maps apply). Its documents are the
// files directly in dir whose names end in ".vgxXml" or ".vgxView" (letter case ignored): the
// main document and view file, product documents, and any other document lying there. In each,
// the references are what Pack & Go follows or gathers: the IsInstanceOf of every CLitAssyGroup
// element, the File of every Resource element, and, in a view file, the Document of its root
// element; empty values name nothing. A reference must be a bare file name (no "\" or "/", no
// drive or other ":", not "." or "..") of a file in dir that can be read, looked up as the
// platform looks up names (without letter case unless NOMZUB_CASE_SENSITIVE=1). The geometry file
// of every IsInstanceOf reference present (its name less the last six characters, followed by
// "vgxGeom", as Pack & Go derives it) must be there too. Reads the documents through the DOM
// wrapper, which logs why one cannot be parsed; writes nothing.
NOM_API VerifyResult VerifyPackage(const std::string& dir);

// ---- Preview ------------------------------------------------------------------------------

// A product whose geometry the preview could not show; a marked placeholder box stands in its
// place.
struct PreviewGeometryIssue {
  std::string product;   // the product document's file name in the directory
  std::string geometry;  // the geometry file's name ("P-BOLT.vgxGeom")
  std::string problem;   // "missing", or what is wrong with the file or the product document
};

struct PreviewResult {
  // Set when no preview was written: the directory or its main document cannot be read, the
  // product structure is cyclic or too large, or the files cannot be written. Else empty.
  std::string problem;
  // The package's name (the main document's Name), "" when it has none.
  std::string package;
  // Placed product instances (every CLitAssyGroup with an IsInstanceOf, however deep).
  uint64_t instances = 0;
  // Distinct product documents the instances refer to.
  uint64_t products = 0;
  // Products shown as placeholders, in the order first met; each product once.
  std::vector<PreviewGeometryIssue> missing;
  // The files written: "<dir>/preview.glb" and "<dir>/preview.html" (native paths); empty when
  // problem is set.
  std::string glb_path;
  std::string html_path;
};

// Reads the package in dir (a module path; drive and share maps apply): the main document
// SOI.vgxXml, the product documents its IsInstanceOf attributes name (bare names in dir; a path
// is reduced to its file name) and each product document's .vgxGeom geometry (binary glTF 2.0).
// Writes dir/preview.glb, one glTF scene with the product hierarchy as named nodes, each instance
// placed by its Placement (a simulation position for the same ident path replaces it; the last 3D
// state of an ident path sets its visibility), each product's meshes written once and shared by
// its instances; and dir/preview.html, a page that shows that scene with no network access.
// Missing or damaged geometry becomes a placeholder box listed in missing; a damaged geometry file
// is never read out of its bounds. On failure sets problem, writes nothing and logs the cause at
// level 2.
NOM_API PreviewResult WritePreview(const std::string& dir);

}  // namespace nomsoi

#endif  // NOMSOI_HOST_H_
