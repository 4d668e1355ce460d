// nomsoi verify: tells whether a directory holds a self-contained package.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"

namespace nomsoi {
namespace {

// What --help says of the command.
constexpr char kDescription[] =
    "Check that DIR holds a self-contained package, as Pack & Go leaves one: every reference in "
    "its documents (the *.vgxXml and *.vgxView files directly in DIR: IsInstanceOf of "
    "CLitAssyGroup elements, File of Resource elements, a view file's Document) is a bare file "
    "name of a file in DIR (letter case ignored unless NOMZUB_CASE_SENSITIVE=1), and every "
    "product document named has its .vgxGeom geometry file there. Exit 0 with a summary line; "
    "3 with each problem on a line of its own; 2 when DIR holds no package or a document is not "
    "well-formed XML. Reads only.";

int RunVerify(const std::string& dir_argument) {
  const std::string dir = FullPath(dir_argument);
  const VerifyResult result = VerifyPackage(dir);
  if (!result.refused.empty()) return Refuse("verify", result.refused);
  for (const UnreadableDocument& document : result.unreadable)
    Refuse("verify", "document " + Quoted(document.document) + " " + document.problem);
  std::string problems;
  for (const VerifyProblem& problem : result.problems) problems += problem.Message() + "\n";
  std::fputs(problems.c_str(), stderr);
  if (!result.unreadable.empty()) return kExitUsage;

  const std::string counts = std::to_string(result.documents.size()) + " documents, " +
                             std::to_string(result.references) + " references (" +
                             std::to_string(result.geometry) + " geometry files) checked";
  if (result.problems.empty()) {
    Inform("nomsoi verify: " + Quoted(dir) + " is self-contained: " + counts + "\n");
    return kExitOk;
  }
  std::fputs(("nomsoi verify: " + Quoted(dir) + " is not self-contained: " +
              std::to_string(result.problems.size()) + " problems; " + counts + "\n")
                 .c_str(),
             stderr);
  return kExitMissing;
}

}  // namespace

Command SetupVerifyCommand(CLI::App& app) {
  auto dir = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("verify", kDescription);
  command->add_option("dir", *dir, "Directory of the package to check")
      ->type_name("DIR")
      ->required();
  return {command, [dir] { return RunVerify(*dir); }, "nomsoi verify ./package"};
}

}  // namespace nomsoi
