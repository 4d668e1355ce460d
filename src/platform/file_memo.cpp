// What the default Env remembers of files, tied to their identities.
#include "platform/file_memo.h"

#include <deque>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace nomplat {

FileIdentity FileIdentity::Of(const struct stat& st) {
  FileIdentity id;
  id.device = st.st_dev;
  id.inode = st.st_ino;
  id.size = st.st_size;
  id.modified = st.st_mtim;
  id.changed = st.st_ctim;
  return id;
}

bool FileIdentity::operator==(const FileIdentity& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec &&
         changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

namespace {

// Total bytes of contents kept; beyond it the oldest are forgotten. Enough for the documents of
// a shared sub-assembly, which are read again and again; a package of thousands of distinct
// documents gains little from keeping them and would only grow the process.
constexpr size_t kContentsBudget = 2u << 20;
// Files found readable kept; beyond it they are forgotten all at once. The facts that pay are
// about files visited again soon, or again and again, and about the files a run wrote before it
// copies them.
constexpr size_t kMaxReadable = 1 << 16;
// Copies kept, likewise: those made again are those of a shared sub-assembly, a few files reached
// by many paths, and those a host made ahead of the module (the module's copy is then found
// made), one per file of the package.
constexpr size_t kMaxCopies = 1 << 16;
// What keeping contents costs beyond their bytes, so that empty files count too.
constexpr size_t kEntryCost = 64;

struct Copy {
  std::string from;
  FileIdentity source;
  FileIdentity target;
  bool readable;  // the target, as made, may be read by this process
  bool verbatim;  // the target holds the source's bytes
};

struct Kept {
  FileIdentity id;
  FileBytes bytes;
};

// Forgets every entry of map once it holds limit.
template <typename Map>
void MakeRoom(Map* map, size_t limit) {
  if (map->size() >= limit) map->clear();
}

}  // namespace

struct FileMemo::State {
  std::mutex mu;
  std::unordered_map<std::string, FileIdentity> readable;
  std::unordered_map<std::string, Copy> copies;  // by target
  std::unordered_map<std::string, Kept> contents;
  std::deque<std::pair<std::string, FileBytes>> order;  // contents in the order they were kept
  size_t bytes = 0;

  // Contents of native as id, without following copies.
  FileBytes Find(const std::string& native, const FileIdentity& id) {
    const auto it = contents.find(native);
    return it != contents.end() && it->second.id == id ? it->second.bytes : nullptr;
  }

  // Forgets the oldest contents until the budget holds. An entry of the order whose file has
  // been given other contents since is skipped: those are in the order again.
  void Trim() {
    while (bytes > kContentsBudget && !order.empty()) {
      auto& [native, kept] = order.front();
      bytes -= kept->size() + kEntryCost;
      const auto it = contents.find(native);
      if (it != contents.end() && it->second.bytes == kept) contents.erase(it);
      order.pop_front();
    }
  }
};

FileMemo& FileMemo::Instance() {
  static FileMemo* const memo = new FileMemo;  // never destroyed, as the Env that uses it
  return *memo;
}

FileMemo::FileMemo() : state_(new State) {}

FileMemo::~FileMemo() = default;

bool FileMemo::KnownReadable(const std::string& native, const FileIdentity& id) {
  std::lock_guard<std::mutex> lock(state_->mu);
  const auto it = state_->readable.find(native);
  if (it != state_->readable.end() && it->second == id) return true;
  const auto copy = state_->copies.find(native);
  return copy != state_->copies.end() && copy->second.readable && copy->second.target == id;
}

void FileMemo::NoteReadable(const std::string& native, const FileIdentity& id) {
  std::lock_guard<std::mutex> lock(state_->mu);
  MakeRoom(&state_->readable, kMaxReadable);
  state_->readable[native] = id;
}

bool FileMemo::CopyIsCurrent(const std::string& from, const std::string& to,
                             const FileIdentity& src, const FileIdentity& dst) {
  std::lock_guard<std::mutex> lock(state_->mu);
  const auto it = state_->copies.find(to);
  return it != state_->copies.end() && it->second.from == from && it->second.source == src &&
         it->second.target == dst;
}

void FileMemo::NoteCopy(const std::string& from, const std::string& to, const FileIdentity& src,
                        const FileIdentity& dst, bool readable, bool verbatim) {
  std::lock_guard<std::mutex> lock(state_->mu);
  MakeRoom(&state_->copies, kMaxCopies);
  state_->copies[to] = Copy{from, src, dst, readable, verbatim};
}

FileBytes FileMemo::Contents(const std::string& native, const FileIdentity& id) {
  std::lock_guard<std::mutex> lock(state_->mu);
  if (FileBytes kept = state_->Find(native, id)) return kept;
  const auto copy = state_->copies.find(native);
  if (copy == state_->copies.end() || !copy->second.verbatim || !(copy->second.target == id)) {
    return nullptr;
  }
  return state_->Find(copy->second.from, copy->second.source);
}

void FileMemo::NoteContents(const std::string& native, const FileIdentity& id, FileBytes bytes) {
  if (bytes == nullptr || bytes->size() > kMemoFileLimit) return;
  std::lock_guard<std::mutex> lock(state_->mu);
  state_->contents[native] = {id, bytes};
  state_->bytes += bytes->size() + kEntryCost;
  state_->order.emplace_back(native, std::move(bytes));
  state_->Trim();
}

namespace {

// Puts to in place of the leading from of every key of map that lies inside directory from.
template <typename Map>
void MoveKeys(Map* map, const std::string& from, const std::string& to) {
  const std::string prefix = from + '/';
  std::vector<typename Map::node_type> moved;
  for (auto it = map->begin(); it != map->end();) {
    if (it->first.compare(0, prefix.size(), prefix) == 0) {
      moved.push_back(map->extract(it++));
    } else {
      ++it;
    }
  }
  for (auto& node : moved) {
    node.key() = to + node.key().substr(from.size());
    map->insert(std::move(node));
  }
}

}  // namespace

void FileMemo::MoveDirectory(const std::string& from, const std::string& to) {
  std::lock_guard<std::mutex> lock(state_->mu);
  MoveKeys(&state_->readable, from, to);
  MoveKeys(&state_->copies, from, to);
  MoveKeys(&state_->contents, from, to);
  const std::string prefix = from + '/';
  for (auto& [native, bytes] : state_->order) {
    if (native.compare(0, prefix.size(), prefix) == 0) native = to + native.substr(from.size());
  }
  for (auto& [target, copy] : state_->copies) {
    if (copy.from.compare(0, prefix.size(), prefix) == 0) {
      copy.from = to + copy.from.substr(from.size());
    }
  }
}

void FileMemo::Clear() {
  std::lock_guard<std::mutex> lock(state_->mu);
  state_->readable.clear();
  state_->copies.clear();
  state_->contents.clear();
  state_->order.clear();
  state_->bytes = 0;
}

void ForgetRememberedFiles() { FileMemo::Instance().Clear(); }

}  // namespace nomplat
