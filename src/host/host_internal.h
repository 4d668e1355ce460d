// What the host library's files share behind the public header: messages on standard error, the
// output directory, and where the log goes.
#ifndef NOM_HOST_HOST_INTERNAL_H_
#define NOM_HOST_HOST_INTERNAL_H_

#include <string>

#include "NOMSOIHost.h"
#include "win_types.h"

namespace nomsoi {

// text between single quotes, as messages name paths and values.
inline std::string Quoted(const std::string& text) { return "'" + text + "'"; }
// Writes all of text to standard error (no buffering: it may interleave with log records).
void WriteToStderr(const std::string& text);
// Prints "nomsoi <command>: <message>" on standard error and returns kExitUsage.
int Refuse(const std::string& command, const std::string& message);

// Creates the output directory (a module path) and its parents when missing. kExitOk when it
// exists afterwards; kExitUsage after a message naming the option and the path otherwise.
int PrepareOutputDirectory(const std::string& command, const std::string& option,
                           const std::string& dir);
// Why the document at the module path is not well-formed XML, with its line and column; "" when
// it cannot be read or nothing is wrong.
std::string NotWellFormedCause(const std::string& module_path);
// True when the file lies directly in the directory (both module paths that exist).
bool LiesDirectlyIn(const std::string& file, const std::string& dir);

// True when the log goes to standard error: configured so, or never configured and NOMZUB_LOG
// unset, empty or "-".
bool LogGoesToStderr();

}  // namespace nomsoi

#endif  // NOM_HOST_HOST_INTERNAL_H_
