// One interface over the two planning database engines: SQLite files ("sqlite:PATH") and
// PostgreSQL servers ("postgresql://..."). Statements are written once in portable SQL with "?"
// parameters; every value travels as text.
#ifndef NOM_NOMZUBPROXY_PLANNING_DB_H_
#define NOM_NOMZUBPROXY_PLANNING_DB_H_

#include <memory>
#include <string>
#include <vector>

namespace nomzub::proxy {

// Result rows; a NULL column reads as "".
using Rows = std::vector<std::vector<std::string>>;

class PlanningDb {
 public:
  virtual ~PlanningDb() = default;
  // Runs one statement, binding params to its "?" placeholders in order; the rows it returns are
  // stored in *rows when rows is not null. False on failure, with the engine's message in error().
  virtual bool Run(const std::string& sql, const std::vector<std::string>& params, Rows* rows) = 0;
  // Runs several statements separated by ";" and no parameters. False on failure (error()).
  virtual bool RunScript(const std::string& sql) = 0;
  // Whether the database has a table of that name (false also on failure: see error()).
  virtual bool HasTable(const std::string& name) = 0;
  // How many tables the database (its current schema, for PostgreSQL) holds; -1 on failure.
  virtual int TableCount() = 0;
  // The last failure's message.
  const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

struct DbCredentials {
  std::string login;
  std::string password;
};

enum class DbAccess {
  kReadOnly,  // an existing database, never written (Connect)
  kCreate,    // created when missing, written (administration)
};

// Opens the database at url ("sqlite:PATH" with PATH a native or module path, or
// "postgresql://..." / "postgres://..."). credentials, when given, override the URL's user and
// password (PostgreSQL authenticates them; SQLite ignores them). Returns null and sets *error to
// a sentence naming the database and the cause, every password in it hidden (RedactServerUrl),
// also where the server's own message quotes the URL.
std::unique_ptr<PlanningDb> OpenPlanningDb(const std::string& url, DbAccess access,
                                           const DbCredentials* credentials, std::string* error);

// Whether url names an SQLite database ("sqlite:PATH").
bool IsSqliteUrl(const std::string& url);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PLANNING_DB_H_
