// The PostgreSQL engine behind PlanningDb (libpq).
#include <libpq-fe.h>

#include <vector>

#include "NOMZUBProxy/planning_engines.h"
#include "NOMZUBProxy/server_redaction.h"
#include "services/NOMZUBConnector.h"

namespace nomzub::proxy {
namespace {

// A libpq message on one log line: every run of blanks that holds a line break becomes one blank,
// trailing blanks go.
std::string OneLine(const std::string& message) {
  std::string out;
  size_t i = 0;
  while (i < message.size()) {
    size_t blanks_end = message.find_first_not_of(" \t\r\n", i);
    if (blanks_end == i) {
      out += message[i++];
      continue;
    }
    if (blanks_end == std::string::npos) break;
    std::string blanks = message.substr(i, blanks_end - i);
    out += blanks.find('\n') == std::string::npos ? blanks : " ";
    i = blanks_end;
  }
  return out;
}

// Turns the "?" placeholders of portable SQL into PostgreSQL's "$1", "$2", ... (none of our
// statements holds a "?" inside a literal).
std::string NumberPlaceholders(const std::string& sql) {
  std::string out;
  int n = 0;
  for (char c : sql) {
    if (c == '?') {
      out += "$" + std::to_string(++n);
    } else {
      out += c;
    }
  }
  return out;
}

class PostgresDb : public PlanningDb {
 public:
  explicit PostgresDb(PGconn* conn) : conn_(conn) {}
  ~PostgresDb() override { PQfinish(conn_); }

  bool Run(const std::string& sql, const std::vector<std::string>& params, Rows* rows) override {
    std::vector<const char*> values;
    for (const std::string& p : params) values.push_back(p.c_str());
    PGresult* result =
        PQexecParams(conn_, NumberPlaceholders(sql).c_str(), static_cast<int>(values.size()),
                     nullptr, values.data(), nullptr, nullptr, 0);
    bool ok = Check(result);
    if (ok && rows != nullptr) {
      for (int r = 0, n = PQntuples(result); r < n; ++r) {
        std::vector<std::string>& row = rows->emplace_back();
        for (int c = 0, m = PQnfields(result); c < m; ++c)
          row.emplace_back(PQgetvalue(result, r, c));
      }
    }
    PQclear(result);
    return ok;
  }

  bool RunScript(const std::string& sql) override {
    PGresult* result = PQexec(conn_, sql.c_str());
    bool ok = Check(result);
    PQclear(result);
    return ok;
  }

  bool HasTable(const std::string& name) override {
    Rows rows;
    return Run("SELECT table_name FROM information_schema.tables "
               "WHERE table_schema = current_schema() AND table_name = ?",
               {name}, &rows) &&
           !rows.empty();
  }

  int TableCount() override {
    Rows rows;
    if (!Run("SELECT count(*) FROM information_schema.tables "
             "WHERE table_schema = current_schema()",
             {}, &rows)) {
      return -1;
    }
    return std::stoi(rows[0][0]);
  }

 private:
  bool Check(PGresult* result) {
    ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return true;
    error_ = OneLine(result ? PQresultErrorMessage(result) : PQerrorMessage(conn_));
    return false;
  }
  PGconn* conn_;
};

void IgnoreNotice(void*, const char*) {}

}  // namespace

std::unique_ptr<PlanningDb> OpenPostgresDb(const std::string& url, DbAccess access,
                                           const DbCredentials* credentials, std::string* error) {
  // Later keywords override what the expanded URL says, so the login comes after "dbname".
  std::vector<const char*> keys = {"dbname", "fallback_application_name"};
  std::vector<const char*> values = {url.c_str(), "nomzub"};
  if (credentials != nullptr) {
    keys.insert(keys.end(), {"user", "password"});
    values.insert(values.end(), {credentials->login.c_str(), credentials->password.c_str()});
  }
  if (access == DbAccess::kReadOnly) {
    keys.push_back("options");
    values.push_back("-c default_transaction_read_only=on");
  }
  keys.push_back(nullptr);
  values.push_back(nullptr);
  PGconn* conn = PQconnectdbParams(keys.data(), values.data(), 1);
  if (PQstatus(conn) != CONNECTION_OK) {
    std::string message = conn ? Scrubbed(OneLine(PQerrorMessage(conn)), url) : "out of memory";
    *error = "cannot connect to planning server " + RedactServerUrl(url) + ": " + message;
    PQfinish(conn);
    return nullptr;
  }
  PQsetNoticeProcessor(conn, IgnoreNotice, nullptr);
  return std::make_unique<PostgresDb>(conn);
}

}  // namespace nomzub::proxy
