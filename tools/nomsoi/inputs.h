// The checks nomsoi makes of its inputs before the module runs, and the full paths it gives it.
#ifndef NOM_TOOLS_NOMSOI_INPUTS_H_
#define NOM_TOOLS_NOMSOI_INPUTS_H_

#include <string>

#include "host.h"

namespace nomsoi {

// The full path of a path given on the command line: a relative one is taken from the working
// directory (as the shell shows it), with "." and ".." steps resolved by their text, so that it
// names the same file as the full path a user would type (without a trailing separator); a full
// path (rooted, drive or network) is returned as it is.
std::string FullPath(const std::string& path);

// The native path a module path names; the module path itself when it cannot be mapped (a later
// operation on it then reports why).
std::string NativeOf(const std::string& module_path);
// Checks that path (a module path, as the module will open it) holds a well-formed XML document.
// Returns an empty string when it does, else what is wrong with it ("does not exist", ...).
std::string XmlDocumentProblem(const std::string& path);
// Refuses the option's document when XmlDocumentProblem finds a problem: prints
// "nomsoi <command>: <option>: '<path>' <problem>" and returns kExitUsage; kExitOk otherwise.
int CheckXmlDocument(const std::string& command, const std::string& option,
                     const std::string& path);
// Refuses an output directory (a module path) that cannot be mapped or is not a directory;
// kExitOk when it is one or does not exist yet. Creates nothing.
int CheckOutputDirectory(const std::string& command, const std::string& option,
                         const std::string& dir);
// Creates the output directory (a module path) and its parents when missing. kExitOk when it
// exists afterwards; kExitUsage after a message naming the option and the path otherwise.
int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir);
// True when the file lies directly in the directory (both module paths that exist).
bool LiesDirectlyIn(const std::string& file, const std::string& dir);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_INPUTS_H_
