// What pack, odt and dump share on the command line: the safety options and the checks of their
// inputs before the run.
#ifndef NOM_TOOLS_NOMSOI_PACKING_H_
#define NOM_TOOLS_NOMSOI_PACKING_H_

#include <CLI/CLI.hpp>
#include <string>

#include "NOMSOIHost.h"

namespace nomsoi {

// Declares --report on command, and with preflight also --confine, --max-visits, --max-depth,
// --force and --dry-run.
void AddSafetyOptions(CLI::App& command, SafetyOptions& options, bool preflight);
// Refuses the option's document when XmlDocumentProblem finds a problem: prints
// "nomsoi <command>: <option>: '<path>' <problem>" and returns kExitUsage; kExitOk otherwise.
int CheckXmlDocument(const std::string& command, const std::string& option,
                     const std::string& path);
// Refuses an output directory (a module path) that cannot be mapped or is not a directory;
// kExitOk when it is one or does not exist yet. Creates nothing.
int CheckOutputDirectory(const std::string& command, const std::string& option,
                         const std::string& dir);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_PACKING_H_
