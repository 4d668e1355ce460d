// The walk a host makes before Pack & Go: the module's own resolution of every reference, in the
// module's order, on an explicit stack instead of recursion.
#include "packngo/Preflight.h"

#include <limits>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "NOMSOIUtility.h"
#include "platform/codepage.h"
#include "platform/env.h"
#include "platform/paths.h"
#include "platform/win32.h"
#include "services/NOMZUBDOMWrapper.h"
#include "services/NOMZUBLog.h"
#include "services/NOMZUBVGXGen.h"
#include "utility/module_internal.h"

namespace {

using nomsoi::ItemKind;
using nomsoi::PlannedItem;
using nomsoi::PreflightOptions;
using nomsoi::PreflightResult;
using nomsoi::Refusal;

uint64_t SaturatingAdd(uint64_t a, uint64_t b) {
  return a > std::numeric_limits<uint64_t>::max() - b ? std::numeric_limits<uint64_t>::max()
                                                      : a + b;
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// Holds back every log record while it lives: the resolution logs the references it cannot
// open, and the preflight reports those itself.
class MutedLog : public nomzub::LogSink {
 public:
  MutedLog() : previous_(nomzub::SetLogSink(this)) {}
  ~MutedLog() override { nomzub::SetLogSink(previous_); }
  MutedLog(const MutedLog&) = delete;
  MutedLog& operator=(const MutedLog&) = delete;
  void Write(const std::string&, int32_t) override {}

 private:
  nomzub::LogSink* previous_;
};

// A file's identity on disk; equal for two paths that name one file.
struct Identity {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator<(const Identity& other) const {
    return device != other.device ? device < other.device : inode < other.inode;
  }
  bool operator==(const Identity& other) const {
    return device == other.device && inode == other.inode;
  }
};

// The references of one product document (or, for the main document, of its list children),
// followed one at a time as the module does.
struct Frame {
  std::string path;                 // the document as the walk reached it
  Identity identity;                // its file
  std::vector<std::string> values;  // its non-empty IsInstanceOf values, in document order
  size_t next = 0;                  // the value to follow next
  uint64_t visits = 0;              // references followed below this document so far
  uint64_t height = 1;              // 1 + the deepest nesting below it so far
  std::string child;                // the document being walked below, when one is
};

}  // namespace

// Friend of NOMSOIUtility: resolves with the module's private operations.
class NOMSOIPreflight {
 public:
  explicit NOMSOIPreflight(const PreflightOptions& options) : options_(options) {}

  PreflightResult Run() {
    MutedLog muted;
    main_path_ = options_.main_path;
    utility_.FormatFilePath(main_path_);
    normalised_soi_ = options_.soi_directory;
    utility_.FormatFilePath(normalised_soi_);

    ClaimOwnName(main_path_, options_.main_saved_as);
    CheckConfined(ItemKind::kDocument, main_path_, "");
    if (!options_.view_path.empty()) {
      ClaimOwnName(options_.view_path, options_.view_saved_as);
      CheckConfined(ItemKind::kDocument, options_.view_path, "");
    }
    if (options_.walk == nomsoi::PackWalk::kPackNGo) {
      PlanResources(main_path_);
      if (!options_.view_path.empty()) PlanResources(options_.view_path);
    }
    if (!result_.Refused()) Walk();
    if (!result_.Refused()) CountBytes();
    if (!result_.Refused() && !result_.meets_own_copies) NoteMissingCopiedNames();
    if (!result_.Refused() && options_.check_space) CheckSpace();
    return std::move(result_);
  }

 private:
  // The walk: the main document's list children, then depth first below each, as the module
  // follows them; a document reached again by the same path is not read again.
  void Walk() {
    std::vector<Frame> stack;
    stack.push_back(Frame());
    stack.back().path = main_path_;
    stack.back().values = ListChildValues();
    std::map<Identity, size_t> on_stack;
    while (!stack.empty()) {
      Frame& frame = stack.back();
      if (frame.next == frame.values.size()) {
        Frame done = std::move(stack.back());
        stack.pop_back();
        if (stack.empty()) {
          result_.visits = done.visits;
          result_.depth = done.height - 1;
          return;
        }
        on_stack.erase(done.identity);
        walked_[done.path] = {done.visits, done.height};
        Absorb(stack.back(), done.visits, done.height);
        continue;
      }
      const bool top = stack.size() == 1;
      std::string source = frame.values[frame.next++];
      Identity identity;
      if (!Follow(top, frame.path, &source, &identity)) continue;
      followed_ = SaturatingAdd(followed_, 1);
      // A file the walk is below is a cycle, whatever path reaches it: the path may be one
      // walked to its end before, from another directory, where it led elsewhere.
      const auto walked = walked_.find(source);
      if (on_stack.count(identity) > 0) {
        ReportCycle(stack, on_stack[identity], source);
        return;
      } else if (walked != walked_.end()) {
        followed_ = SaturatingAdd(followed_, walked->second.first);
        Absorb(frame, walked->second.first, walked->second.second);
      } else if (stack.size() > options_.max_depth) {
        Refuse(Refusal::kTooDeep, "product documents nest deeper than --max-depth " +
                                      std::to_string(options_.max_depth) + " below " +
                                      Quoted(main_path_) + " (at " + Quoted(source) + ")");
        return;
      } else {
        Frame child;
        child.path = source;
        child.identity = identity;
        child.values = NestedValues(source);
        on_stack[identity] = stack.size();
        stack.push_back(std::move(child));
      }
      if (TooManyVisits()) return;
    }
  }

  // A reference followed from frame: one visit, plus the visits and nesting below it.
  static void Absorb(Frame& frame, uint64_t visits, uint64_t height) {
    frame.visits = SaturatingAdd(frame.visits, SaturatingAdd(1, visits));
    if (height + 1 > frame.height) frame.height = height + 1;
  }

  // The references followed so far, each shared document counted with everything below it,
  // only grow towards the total: past the limit, the walk stops.
  bool TooManyVisits() {
    if (followed_ <= options_.max_visits) return false;
    Refuse(Refusal::kTooManyVisits,
           "the package's references would be followed more than --max-visits " +
               std::to_string(options_.max_visits) + " times (shared documents are copied once " +
               "per path to them) below " + Quoted(main_path_));
    return true;
  }

  void ReportCycle(const std::vector<Frame>& stack, size_t from, const std::string& closing) {
    std::string chain;
    for (size_t i = from; i < stack.size(); ++i) chain += Quoted(stack[i].path) + " -> ";
    chain += Quoted(closing);
    Refuse(Refusal::kCycle, "reference cycle: " + chain);
  }

  // Resolves one reference of the document at from, plans its copies, and tells whether the
  // walk goes below it (*source: the resolved document, *identity: its file).
  bool Follow(bool top, const std::string& from, std::string* source, Identity* identity) {
    std::string target = top ? normalised_soi_ : options_.soi_directory;
    utility_.FormatFilePath(*source);
    const bool present = utility_.GetActualPath(from, *source, target) != 1;
    nomplat::FileFacts facts;
    Plan(ItemKind::kDocument, *source, target, from, present, &facts);
    if (!present) return false;

    const std::string geometry = nomsoi::GeometryPathOf(*source);
    const std::string geometry_target =
        top ? nomsoi::ListChildGeometryTarget(normalised_soi_, geometry)
            : nomsoi::NestedGeometryTarget(target);
    nomplat::FileFacts geometry_facts;
    Plan(ItemKind::kGeometry, geometry, geometry_target, *source,
         nomplat::CanOpenForReading(geometry), &geometry_facts);
    *identity = {facts.device, facts.inode};
    return facts.exists;
  }

  // Records a planned copy (once per source and target) and checks it.
  void Plan(ItemKind kind, const std::string& source, const std::string& target,
            const std::string& referrer, bool present, nomplat::FileFacts* facts) {
    if (nomplat::StatModulePath(source, facts) != 0) *facts = nomplat::FileFacts();
    PlannedItem item;
    item.kind = kind;
    item.source = source;
    item.target = target;
    item.referrer = referrer;
    item.present = present;
    item.size = present ? facts->size : 0;
    result_.items.push_back(std::move(item));
    if (!seen_.insert(result_.items.size() - 1).second) {
      result_.items.pop_back();
      return;
    }
    const Identity identity{facts->device, facts->inode};
    const std::string* key =
        present ? Claim(TargetKey(target), target, result_.items.size() - 1, "", identity)
                : nullptr;
    places_.push_back({key, identity});
    if (facts->exists && !facts->confined) ReportOutside(kind, source, referrer, *facts);
    if (options_.on_planned) {
      options_.on_planned(result_.items.size() - 1, result_.items.back(), facts->native);
    }
  }

  void CheckConfined(ItemKind kind, const std::string& path, const std::string& referrer) {
    nomplat::FileFacts facts;
    if (nomplat::StatModulePath(path, &facts) == 0 && facts.exists && !facts.confined)
      ReportOutside(kind, path, referrer, facts);
  }

  void ReportOutside(ItemKind kind, const std::string& source, const std::string& referrer,
                     const nomplat::FileFacts& facts) {
    std::string message = std::string(nomsoi::ItemKindName(kind)) + " " + Quoted(source);
    if (!referrer.empty()) message += " (named by " + Quoted(referrer) + ")";
    message += " lies outside the confinement roots (its real path is " + Quoted(facts.real) + ")";
    Refuse(Refusal::kOutsideConfinement, message);
  }

  // The main document or view file keeps its name where it is saved: a copy landing on that name
  // would replace it.
  void ClaimOwnName(const std::string& path, const std::string& saved_as) {
    nomplat::FileFacts facts;
    if (nomplat::StatModulePath(path, &facts) != 0 || !facts.exists) return;
    const std::string& target = saved_as.empty() ? path : saved_as;
    Claim(TargetKey(target), target, kNoItem, path, {facts.device, facts.inode});
  }

  // Notes that target (key: TargetKey) receives a file: the source of plan item `item`, or, for
  // kNoItem, the file `own` (the main document or view file). Two different files on one name
  // (compared without letter case) are refused unless allowed. Returns the key as the claims
  // hold it, which stays where it is while the preflight lives.
  const std::string* Claim(std::string key, const std::string& target, size_t item,
                           const std::string& own, const Identity& identity) {
    const Claimant claimant{item, own, identity};
    const auto inserted = claims_.emplace(std::move(key), claimant);
    const auto& found = inserted.first;
    if (inserted.second) return &found->first;
    if (found->second.identity == identity || options_.allow_collisions) return &found->first;
    if (!collided_.insert(found->first).second) return &found->first;
    Refuse(Refusal::kCollision, "two different files would land on " + Quoted(target) + ": " +
                                    Quoted(SourceOf(found->second)) + " and " +
                                    Quoted(SourceOf(claimant)) +
                                    " (use --force to let the later copy win)");
    return &found->first;
  }

  // Where a target lands, compared without letter case: its native path, so that two spellings
  // of one place ("Z:\out\A", "/out/A", "out\.\A") are one key. The names are taken as
  // written: the key folds letter case, so the disk's spelling would not change it.
  static std::string TargetKey(const std::string& target) {
    std::string native;
    DWORD error = 0;
    if (!nomplat::ToNativePathAsWritten(target, &native, &error)) {
      return nomplat::CaseFoldKey(target);
    }
    return nomplat::CaseFoldKey(nomplat::Utf8ToAcp(native));
  }

  // The non-empty IsInstanceOf values of the main document's list children, list by list.
  std::vector<std::string> ListChildValues() {
    std::vector<std::string> values;
    NOMZUBDOMWrapper doc;
    if (doc.OpenDocument(main_path_) < 0) return values;
    for (const nomsoi::ListGroup& group : nomsoi::kListGroups) {
      IXMLDOMNode* list = nullptr;
      doc.GetNode("CLitAssyGroup", &list, "Ident", group.ident);
      if (list == nullptr) continue;
      IXMLDOMNodeList* children = nullptr;
      doc.GetChildNodes(list, &children, "CLitAssyGroup");
      if (children != nullptr) {
        AppendValues(doc, children, "IsInstanceOf", &values);
        children->Release();
      }
      list->Release();
    }
    return values;
  }

  // The non-empty IsInstanceOf values of a product document's CLitAssyGroup elements.
  static std::vector<std::string> NestedValues(const std::string& path) {
    return ElementAttributes(path, "CLitAssyGroup", "IsInstanceOf");
  }

  // The non-empty values of one attribute of every element of that name in a document, in
  // document order; none when the document cannot be opened.
  static std::vector<std::string> ElementAttributes(const std::string& path, const char* element,
                                                    const char* attribute) {
    std::vector<std::string> values;
    NOMZUBDOMWrapper doc;
    if (doc.OpenDocument(path) < 0) return values;
    IXMLDOMNodeList* nodes = nullptr;
    doc.GetNodes(element, &nodes);
    if (nodes == nullptr) return values;
    AppendValues(doc, nodes, attribute, &values);
    nodes->Release();
    return values;
  }

  static void AppendValues(NOMZUBDOMWrapper& doc, IXMLDOMNodeList* nodes, const char* attribute,
                           std::vector<std::string>* values) {
    long count = 0;
    if (nodes->get_length(&count) < 0) return;
    for (long i = 0; i < count; ++i) {
      IXMLDOMNode* node = nullptr;
      nodes->get_item(i, &node);
      if (node == nullptr) continue;
      std::string value;
      doc.GetAttribute(node, attribute, value);
      if (!value.empty()) values->push_back(std::move(value));
      node->Release();
    }
  }

  // The files a main document or view file names in Resource elements, relative to the path the
  // document is opened with.
  void PlanResources(const std::string& document_path) {
    for (const std::string& reference : ElementAttributes(document_path, "Resource", "File")) {
      const std::string source = nomzub::SharedResourceSource(document_path, reference);
      nomplat::FileFacts facts;
      Plan(ItemKind::kResource, source,
           nomzub::SharedResourceTarget(options_.soi_directory, reference), document_path,
           nomplat::CanOpenForReading(source), &facts);
    }
  }

  // Bytes to write: the last file planned for each target, unless it is already that target.
  // While the SOI directory does not exist, no name directly inside it does either: those
  // targets are counted without a look at the disk. The same look tells which existing files the
  // copies replace.
  void CountBytes() {
    nomplat::FileFacts soi;
    const bool soi_exists =
        nomplat::StatModulePath(options_.soi_directory, &soi) != 0 || soi.exists;
    std::unordered_map<const std::string*, size_t> last;  // target -> the last item to it
    for (size_t i = 0; i < result_.items.size(); ++i) {
      if (result_.items[i].present) last[places_[i].key] = i;
    }
    // What stands at each target that exists already.
    std::unordered_map<const std::string*, Identity> standing;
    for (const auto& entry : last) {
      const PlannedItem& item = result_.items[entry.second];
      if (soi_exists || !DirectlyInSoi(item.target)) {
        nomplat::FileFacts target;
        if (nomplat::StatModulePath(item.target, &target) == 0 && target.exists) {
          const Identity there{target.device, target.inode};
          standing.emplace(entry.first, there);
          if (places_[entry.second].source == there) continue;
        }
      }
      result_.bytes = SaturatingAdd(result_.bytes, item.size);
    }
    NoteReplacedSources(standing);
  }

  // Sets meets_own_copies when a copy lands on an existing file (other than its own source) that
  // is the source of a planned item.
  void NoteReplacedSources(const std::unordered_map<const std::string*, Identity>& standing) {
    if (standing.empty()) return;
    std::set<Identity> replaced;
    for (size_t i = 0; i < result_.items.size(); ++i) {
      if (!result_.items[i].present) continue;
      const auto there = standing.find(places_[i].key);
      if (there != standing.end() && !(places_[i].source == there->second)) {
        replaced.insert(there->second);
      }
    }
    for (size_t i = 0; i < result_.items.size() && !replaced.empty(); ++i) {
      if (result_.items[i].present && replaced.count(places_[i].source) > 0) {
        result_.meets_own_copies = true;
        return;
      }
    }
  }

  // Sets meets_own_copies when a file the walk looks for and does not find bears the name (without
  // letter case) of a copy's target: the module may find that copy there. Names alone are
  // compared, whatever the directories and the order (the plan holds each look once, the module
  // may look again after the copy), so that no spelling of the output directory is missed.
  void NoteMissingCopiedNames() {
    std::unordered_set<std::string> missing;
    for (const PlannedItem& item : result_.items) {
      if (!item.present) missing.insert(nomplat::FileNameKey(item.source));
    }
    if (missing.empty()) return;
    for (const PlannedItem& item : result_.items) {
      if (item.present && missing.count(nomplat::FileNameKey(item.target)) > 0) {
        result_.meets_own_copies = true;
        return;
      }
    }
  }

  // Whether target names an entry directly inside the SOI directory, as the copies' targets
  // do: the directory as given or normalised, one separator, then a name without separators
  // that is not "." or "..".
  bool DirectlyInSoi(const std::string& target) const {
    for (const std::string* soi : {&options_.soi_directory, &normalised_soi_}) {
      const size_t length = soi->size();
      if (length == 0 || target.size() <= length + 1 || target.compare(0, length, *soi) != 0)
        continue;
      if (target[length] != '\\' && target[length] != '/') continue;
      const std::string name = target.substr(length + 1);
      if (name.find_first_of("\\/") == std::string::npos && name != "." && name != "..")
        return true;
    }
    return false;
  }

  // The SOI directory's file system, or that of its nearest existing parent when it is to be
  // created, must hold the bytes to copy.
  void CheckSpace() {
    if (result_.bytes == 0) return;
    uint64_t free = options_.free_bytes.value_or(0);
    // A file system that cannot be measured is left to the copies to tell.
    if (!options_.free_bytes &&
        nomplat::CurrentEnv()->FreeBytes(options_.soi_directory, &free) != 0) {
      return;
    }
    if (result_.bytes <= free) return;
    Refuse(Refusal::kNoSpace,
           "the copies need " + std::to_string(result_.bytes) + " bytes but the file system of " +
               Quoted(options_.soi_directory) + " has " + std::to_string(free) + " bytes free");
  }

  void Refuse(Refusal kind, std::string message) {
    result_.problems.push_back({kind, std::move(message)});
  }

  // Where an item lands (its key in claims_; null for a source that cannot be read) and the
  // file it copies, beside result_.items.
  struct Place {
    const std::string* key;
    Identity source;
  };

  static constexpr size_t kNoItem = static_cast<size_t>(-1);

  // The first file claiming a target: a plan item's source, or for kNoItem the file `own`.
  struct Claimant {
    size_t item;
    std::string own;
    Identity identity;
  };

  const std::string& SourceOf(const Claimant& claimant) const {
    return claimant.item == kNoItem ? claimant.own : result_.items[claimant.item].source;
  }

  // Plan items compared by source and target, so that the set of those met holds indices, not
  // copies of the paths.
  struct ItemHash {
    const std::vector<PlannedItem>* items;
    size_t operator()(size_t i) const {
      const PlannedItem& item = (*items)[i];
      return std::hash<std::string>()(item.source) * 31 + std::hash<std::string>()(item.target);
    }
  };
  struct ItemEqual {
    const std::vector<PlannedItem>* items;
    bool operator()(size_t a, size_t b) const {
      return (*items)[a].source == (*items)[b].source && (*items)[a].target == (*items)[b].target;
    }
  };

  const PreflightOptions& options_;
  NOMSOIUtility utility_;
  PreflightResult result_;
  std::string main_path_;
  std::string normalised_soi_;
  uint64_t followed_ = 0;
  std::unordered_set<size_t, ItemHash, ItemEqual> seen_{16, ItemHash{&result_.items},
                                                        ItemEqual{&result_.items}};
  std::vector<Place> places_;
  std::unordered_map<std::string, Claimant> claims_;
  std::set<std::string> collided_;
  // Documents walked to the end, by the path the walk reached them with: their visits and height.
  std::unordered_map<std::string, std::pair<uint64_t, uint64_t>> walked_;
};

namespace nomsoi {

PreflightResult RunPreflight(const PreflightOptions& options) {
  return NOMSOIPreflight(options).Run();
}

}  // namespace nomsoi
