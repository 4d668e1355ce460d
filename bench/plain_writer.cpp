// The reference for `nomsoi dump`: the least a program must do to leave the same files on disk.
//
//   plain_writer DEST SOURCE...
//
// Reads every regular file under each SOURCE directory into memory (untimed), then creates
// DEST/<name of SOURCE>/<relative path> for each of them with the same bytes (directories with
// mkdir, files with open(O_CREAT | O_TRUNC), write, close) and prints the seconds that took on
// standard output. DEST must not exist; it lands on the file system of its parent. Exit status 0
// on success, 1 when a file cannot be read or written, 2 on a usage error.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct File {
  std::string path;  // relative to DEST
  std::string bytes;
};

// Everything to create, in the order a directory walk met it (a directory before its content).
struct Tree {
  std::vector<std::string> directories;  // relative to DEST
  std::vector<File> files;
};

bool ReadAll(const fs::path& path, std::string* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

bool Load(const fs::path& source, Tree* tree) {
  const std::string top = source.filename().string();
  tree->directories.push_back(top);
  std::error_code ec;
  for (fs::recursive_directory_iterator it(source, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string relative = top + "/" + fs::relative(it->path(), source).string();
    if (it->is_directory()) {
      tree->directories.push_back(relative);
    } else if (it->is_regular_file()) {
      File file{relative, {}};
      if (!ReadAll(it->path(), &file.bytes)) {
        std::fprintf(stderr, "plain_writer: cannot read %s\n", it->path().c_str());
        return false;
      }
      tree->files.push_back(std::move(file));
    }
  }
  if (ec)
    std::fprintf(stderr, "plain_writer: cannot list %s: %s\n", source.c_str(),
                 ec.message().c_str());
  return !ec;
}

bool WriteFile(const std::string& path, const std::string& bytes) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      close(fd);
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return close(fd) == 0;
}

bool Write(const std::string& dest, const Tree& tree) {
  for (const std::string& dir : tree.directories) {
    if (mkdir((dest + "/" + dir).c_str(), 0777) != 0 && errno != EEXIST) {
      std::fprintf(stderr, "plain_writer: mkdir %s/%s: %s\n", dest.c_str(), dir.c_str(),
                   std::strerror(errno));
      return false;
    }
  }
  for (const File& file : tree.files) {
    if (!WriteFile(dest + "/" + file.path, file.bytes)) {
      std::fprintf(stderr, "plain_writer: write %s/%s: %s\n", dest.c_str(), file.path.c_str(),
                   std::strerror(errno));
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: plain_writer DEST SOURCE...\n");
    return 2;
  }
  const std::string dest = argv[1];
  if (fs::exists(dest)) {
    std::fprintf(stderr, "plain_writer: %s exists; give a new directory\n", dest.c_str());
    return 2;
  }
  Tree tree;
  for (int i = 2; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      std::fprintf(stderr, "plain_writer: %s is not a directory\n", argv[i]);
      return 2;
    }
    fs::path source = fs::absolute(argv[i]).lexically_normal();
    if (!source.has_filename()) source = source.parent_path();  // "dir/" names dir
    if (!Load(source, &tree)) return 1;
  }
  const auto start = std::chrono::steady_clock::now();
  if (mkdir(dest.c_str(), 0777) != 0) {
    std::fprintf(stderr, "plain_writer: mkdir %s: %s\n", dest.c_str(), std::strerror(errno));
    return 1;
  }
  const bool ok = Write(dest, tree);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (!ok) return 1;
  std::printf("%.6f\n", elapsed.count());
  return 0;
}
