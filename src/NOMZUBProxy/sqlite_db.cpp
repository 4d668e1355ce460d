// The SQLite engine behind PlanningDb.
#include <sqlite3.h>
#include <sys/stat.h>

#include <charconv>

#include "NOMZUBProxy/planning_engines.h"
#include "platform/paths.h"

namespace nomzub::proxy {
namespace {

class SqliteDb : public PlanningDb {
 public:
  explicit SqliteDb(sqlite3* db) : db_(db) {}
  ~SqliteDb() override { sqlite3_close(db_); }

  bool Run(const std::string& sql, const std::vector<std::string>& params, Rows* rows) override {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) return Fail();
    for (size_t i = 0; i < params.size(); ++i) {
      sqlite3_bind_text(stmt, static_cast<int>(i + 1), params[i].c_str(),
                        static_cast<int>(params[i].size()), SQLITE_STATIC);
    }
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
      if (rows == nullptr) continue;
      std::vector<std::string>& row = rows->emplace_back();
      for (int c = 0, n = sqlite3_column_count(stmt); c < n; ++c) row.push_back(Column(stmt, c));
    }
    sqlite3_finalize(stmt);
    return rc == SQLITE_DONE || Fail();
  }

  bool RunScript(const std::string& sql) override {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK || Fail();
  }

  bool HasTable(const std::string& name) override {
    Rows rows;
    return Run("SELECT name FROM sqlite_master WHERE type = 'table' AND name = ?", {name}, &rows) &&
           !rows.empty();
  }

  int TableCount() override {
    Rows rows;
    if (!Run("SELECT count(*) FROM sqlite_master WHERE type = 'table'", {}, &rows)) return -1;
    return std::stoi(rows[0][0]);
  }

 private:
  // A column as text. Real numbers get their shortest exact form, as PostgreSQL writes them
  // (SQLite's own text keeps only 15 digits).
  static std::string Column(sqlite3_stmt* stmt, int c) {
    if (sqlite3_column_type(stmt, c) == SQLITE_FLOAT) {
      char text[32];
      auto [end, ec] = std::to_chars(text, text + sizeof text, sqlite3_column_double(stmt, c));
      return std::string(text, end);
    }
    const unsigned char* text = sqlite3_column_text(stmt, c);
    return text ? reinterpret_cast<const char*>(text) : "";
  }
  bool Fail() {
    error_ = sqlite3_errmsg(db_);
    return false;
  }
  sqlite3* db_;
};

}  // namespace

std::unique_ptr<PlanningDb> OpenSqliteDb(const std::string& url, DbAccess access,
                                         std::string* error) {
  std::string path = url.substr(sizeof(kSqlitePrefix) - 1);
  std::string native;
  DWORD code = 0;
  if (path.empty() || !nomplat::ToNativePath(path, &native, &code)) {
    *error = "cannot open planning database " + url + ": the path cannot be mapped (error " +
             std::to_string(code) + ")";
    return nullptr;
  }
  struct stat info;
  if (access == DbAccess::kReadOnly && stat(native.c_str(), &info) != 0) {
    *error = "planning database " + url +
             " does not exist (create it with: nomsoi db init --server " + url + ")";
    return nullptr;
  }
  int flags = access == DbAccess::kReadOnly ? SQLITE_OPEN_READONLY
                                            : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(native.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    *error =
        "cannot open planning database " + url + ": " + (db ? sqlite3_errmsg(db) : "out of memory");
    sqlite3_close(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, 5000);
  return std::make_unique<SqliteDb>(db);
}

}  // namespace nomzub::proxy
