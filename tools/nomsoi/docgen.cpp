// nomsoi-docgen: writes nomsoi's manual page and bash completion script at build time, generated
// from the same command-line definitions as --help, so that neither can drift from the program.
#include <cstdio>
#include <string>

#include "commands.h"

namespace {

// Writes text to path. True on success; else says why on standard error.
bool WriteTextFile(const std::string& path, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) {
    std::perror(path.c_str());
    return false;
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed) std::fprintf(stderr, "nomsoi-docgen: cannot write %s\n", path.c_str());
  return written && closed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: nomsoi-docgen MAN_PAGE_FILE COMPLETION_FILE\n");
    return 2;
  }
  nomsoi::CommandLine line;
  const bool man_page = WriteTextFile(argv[1], nomsoi::ManPage(line));
  const bool completion = WriteTextFile(argv[2], nomsoi::BashCompletion(line));
  return man_page && completion ? 0 : 1;
}
