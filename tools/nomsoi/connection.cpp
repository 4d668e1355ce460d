// The connection options of connect and dump and the connection itself.
#include "connection.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host.h"

namespace nomsoi {
namespace {

constexpr char kPasswordVariable[] = "NOMZUB_PASSWORD";

// The first line of the file at path, its "\n" or "\r\n" stripped. Reads no further than one
// byte past the longest password accepted. Throws a usage error naming the file when it cannot
// be read or the line is too long.
std::string ReadPasswordFile(const std::string& path) {
  auto refuse = [&](const std::string& why) {
    return CLI::ValidationError("--password-file", Quoted(path) + " " + why);
  };
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw refuse("cannot be read: " + std::string(std::strerror(errno)));
  std::string line;
  int c = 0;
  while (line.size() <= kMaxPasswordBytes + 1 && (c = std::getc(file)) != EOF && c != '\n') {
    line += static_cast<char>(c);
  }
  const int read_error = std::ferror(file) ? errno : 0;
  std::fclose(file);
  if (read_error != 0) throw refuse("cannot be read: " + std::string(std::strerror(read_error)));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.size() > kMaxPasswordBytes) {
    throw refuse("holds a first line longer than " + std::to_string(kMaxPasswordBytes) +
                 " bytes (the longest password accepted)");
  }
  return line;
}

// Takes the password from the first source given: --password, --password-file, NOMZUB_PASSWORD.
void ResolvePassword(const CLI::Option& password_option, ConnectionOptions& options) {
  if (password_option.count() > 0) return;
  if (!options.password_file.empty()) {
    options.password = ReadPasswordFile(options.password_file);
    return;
  }
  if (const char* password = std::getenv(kPasswordVariable)) {
    options.password = password;
    return;
  }
  throw CLI::ValidationError(
      "a password is required: give --password P, --password-file FILE or the environment "
      "variable " +
      std::string(kPasswordVariable));
}

}  // namespace

void AddServerOption(CLI::App& command, std::string& server) {
  command
      .add_option("--server", server,
                  "Planning data server: sqlite:PATH or postgresql://... (default: NOMZUB_SERVER)")
      ->type_name("URL")
      ->envname("NOMZUB_SERVER")
      ->required();
}

void AddConnectionOptions(CLI::App& command, ConnectionOptions& options) {
  AddServerOption(command, options.server);
  command.add_option("--login", options.login, "Account name on the server")
      ->type_name("L")
      ->required();
  CLI::Option* password =
      command
          .add_option("--password", options.password,
                      "Password of the account (other users may see it in the process list: "
                      "prefer --password-file or NOMZUB_PASSWORD)")
          ->type_name("P");
  command
      .add_option("--password-file", options.password_file,
                  "File whose first line is the password (used when --password is not given)")
      ->type_name("FILE");
  command.add_option("--project", options.project, "Name of the planning project")
      ->type_name("NAME")
      ->required();
  command
      .add_option("--filters", options.filters,
                  "Filter expression restricting the objects loaded (default: everything)")
      ->type_name("EXPR");
  command.footer(
      "The password comes from the first of --password, --password-file and the environment "
      "variable NOMZUB_PASSWORD that is given.");
  command.callback([password, &options] { ResolvePassword(*password, options); });
}

ServerLogin LoginOf(const ConnectionOptions& options) {
  ServerLogin login;
  login.server = options.server;
  login.login = options.login;
  login.password = options.password;
  login.project = options.project;
  login.filters = options.filters;
  return login;
}

int ReportNotConnected(const std::string& command, const ConnectionOptions& options) {
  std::fprintf(stderr,
               "nomsoi %s: not connected to %s (login %s, project %s); the log says which step "
               "failed and why\n",
               command.c_str(), Quoted(RedactedServer(options.server)).c_str(),
               Quoted(options.login).c_str(), Quoted(options.project).c_str());
  return kExitFailed;
}

}  // namespace nomsoi
