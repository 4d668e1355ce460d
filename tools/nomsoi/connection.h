// The connection options of connect and dump: the server, the credentials, the project and the
// filters, and the connection itself.
#ifndef NOM_TOOLS_NOMSOI_CONNECTION_H_
#define NOM_TOOLS_NOMSOI_CONNECTION_H_

#include <CLI/CLI.hpp>
#include <string>

#include "NOMSOIHost.h"

class NOMSOIUtility;

namespace nomsoi {

// The server and the credentials of connect and dump.
struct ConnectionOptions {
  std::string server;
  std::string login;
  std::string password;       // after parsing: from the one source the password came from
  std::string password_file;  // --password-file as given ("" when not)
  std::string project;
  std::string filters;
};

// Declares --server URL (or NOMZUB_SERVER), required, on command.
void AddServerOption(CLI::App& command, std::string& server);
// Declares --server (or NOMZUB_SERVER), --login, --password, --password-file, --project and
// --filters on command. Once the command line is parsed, the password is taken from the first
// of --password, --password-file (its first line, the line end stripped) and the environment
// variable NOMZUB_PASSWORD that is given; none of them, or a password file that cannot be read or
// whose first line is longer than nomzub::kMaxPasswordBytes, is a usage error (exit 2) naming
// the three ways or the file.
void AddConnectionOptions(CLI::App& command, ConnectionOptions& options);
// The login the options name, for ConnectToServer.
ServerLogin LoginOf(const ConnectionOptions& options);
// Says on standard error that the connection failed (the server shown with its password hidden)
// and returns kExitFailed.
int ReportNotConnected(const std::string& command, const ConnectionOptions& options);

}  // namespace nomsoi

#endif  // NOM_TOOLS_NOMSOI_CONNECTION_H_
