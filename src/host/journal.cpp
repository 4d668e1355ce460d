// The journal of the files a run rewrites in place. On disk: DIR/.nomsoi-journal/ holds a copy of
// each file that existed ("0", "1", ...) and the list "entries": for each file the copy's name
// ("" when the file did not exist) and the file's native path, each ended by a NUL byte. The list
// is written last, through a temporary name, so a journal with a list is always complete.
#include "journal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/fd.h"

namespace nomsoi {
namespace {

constexpr char kEntries[] = "entries";

std::string Join(const std::string& dir, const std::string& name) {
  return !dir.empty() && dir.back() == '/' ? dir + name : dir + "/" + name;
}

// Copies the bytes and permission bits of from into a new file to. "" or what went wrong.
std::string CopyBytes(const std::string& from, const std::string& to) {
  const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return "cannot read '" + from + "': " + std::strerror(errno);
  struct stat st;
  fstat(in, &st);
  const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 0777);
  if (out < 0) {
    const int error = errno;
    close(in);
    return "cannot create '" + to + "': " + std::strerror(error);
  }
  char buffer[1 << 16];
  std::string problem;
  for (;;) {
    const ssize_t n = read(in, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) problem = "cannot read '" + from + "': " + std::strerror(errno);
    if (n <= 0) break;
    if (nomplat::WriteAll(out, buffer, static_cast<size_t>(n)) != 0) {
      problem = "cannot write '" + to + "': " + std::strerror(errno);
      break;
    }
  }
  close(in);
  if (close(out) != 0 && problem.empty())
    problem = "cannot write '" + to + "': " + std::strerror(errno);
  return problem;
}

bool ReadWhole(const std::string& path, std::string* contents) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[1 << 12];
  for (;;) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    contents->append(buffer, static_cast<size_t>(n));
  }
  close(fd);
  return true;
}

}  // namespace

void Journal::PutBack(const std::vector<Entry>& entries) {
  for (const Entry& entry : entries) {
    if (entry.backup.empty()) {
      unlink(entry.target.c_str());
    } else {
      rename(entry.backup.c_str(), entry.target.c_str());
    }
  }
}

void Journal::RemoveFolder(const std::string& folder) {
  if (DIR* dir = opendir(folder.c_str())) {
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") unlink(Join(folder, name).c_str());
    }
    closedir(dir);
  }
  rmdir(folder.c_str());
}

std::vector<std::string> Journal::RecoverInterrupted(const std::string& dir) {
  std::vector<std::string> restored;
  const std::string folder = Join(dir, kFolder);
  struct stat st;
  if (lstat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return restored;
  std::string list;
  std::vector<Entry> entries;
  if (ReadWhole(Join(folder, kEntries), &list)) {
    size_t at = 0;
    for (;;) {
      const size_t backup_end = list.find('\0', at);
      if (backup_end == std::string::npos) break;
      const size_t target_end = list.find('\0', backup_end + 1);
      if (target_end == std::string::npos) break;
      const std::string backup = list.substr(at, backup_end - at);
      Entry entry;
      entry.backup = backup.empty() ? std::string() : Join(folder, backup);
      entry.target = list.substr(backup_end + 1, target_end - backup_end - 1);
      entries.push_back(entry);
      at = target_end + 1;
    }
  }
  PutBack(entries);
  for (const Entry& entry : entries) restored.push_back(entry.target);
  RemoveFolder(folder);
  return restored;
}

std::string Journal::Begin(const std::string& dir, const std::vector<std::string>& targets) {
  const std::string folder = Join(dir, kFolder);
  if (mkdir(folder.c_str(), 0700) != 0)
    return "cannot create the journal '" + folder + "': " + std::strerror(errno);
  std::string list;
  std::vector<Entry> entries;
  for (const std::string& target : targets) {
    Entry entry;
    entry.target = target;
    struct stat st;
    if (lstat(target.c_str(), &st) == 0) {
      const std::string name = std::to_string(entries.size());
      entry.backup = Join(folder, name);
      const std::string problem = CopyBytes(target, entry.backup);
      if (!problem.empty()) {
        RemoveFolder(folder);
        return problem;
      }
      list += name;
    }
    list += '\0';
    list += target;
    list += '\0';
    entries.push_back(entry);
  }
  const std::string temp = Join(folder, "entries.new");
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const bool written = fd >= 0 && nomplat::WriteAll(fd, list.data(), list.size()) == 0;
  if (fd >= 0) close(fd);
  if (!written || rename(temp.c_str(), Join(folder, kEntries).c_str()) != 0) {
    const int error = errno;
    RemoveFolder(folder);
    return "cannot write the journal '" + folder + "': " + std::strerror(error);
  }
  folder_ = folder;
  entries_ = std::move(entries);
  return "";
}

void Journal::Restore() {
  if (!open()) return;
  // Putting back is a rename per file: a restore cut short is finished by the next run.
  PutBack(entries_);
  RemoveFolder(folder_);
  folder_.clear();
}

void Journal::Commit() {
  if (!open()) return;
  unlink(Join(folder_, kEntries).c_str());
  RemoveFolder(folder_);
  folder_.clear();
}

}  // namespace nomsoi
