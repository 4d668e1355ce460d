// The schema in portable SQL (the same text runs on SQLite and PostgreSQL) and its upgrades.
#include "NOMZUBProxy/planning_schema.h"

namespace nomzub::proxy {
namespace {

// kSteps[n - 1] turns a version n - 1 database into version n.
const char* const kSteps[kSchemaVersion] = {
    // Version 1: projects, accounts, product structure, geometry, process and views.
    "CREATE TABLE schema_version (version INTEGER NOT NULL);"
    "CREATE TABLE projects (name TEXT PRIMARY KEY, description TEXT NOT NULL);"
    "CREATE TABLE accounts (login TEXT PRIMARY KEY, salt TEXT NOT NULL,"
    " iterations INTEGER NOT NULL, password_hash TEXT NOT NULL);"
    "CREATE TABLE meshes (project TEXT NOT NULL REFERENCES projects (name), oid TEXT NOT NULL,"
    " positions TEXT NOT NULL, indices TEXT NOT NULL, PRIMARY KEY (project, oid));"
    "CREATE TABLE products (project TEXT NOT NULL REFERENCES projects (name),"
    " oid TEXT NOT NULL, name TEXT NOT NULL, kind TEXT NOT NULL"
    " CHECK (kind IN ('product', 'resource', 'manufactured', 'context')), mesh TEXT,"
    " PRIMARY KEY (project, oid));"
    "CREATE TABLE instances (project TEXT NOT NULL REFERENCES projects (name), parent TEXT,"
    " product TEXT NOT NULL, ident TEXT NOT NULL, name TEXT NOT NULL, seq INTEGER NOT NULL,"
    " x DOUBLE PRECISION NOT NULL, y DOUBLE PRECISION NOT NULL, z DOUBLE PRECISION NOT NULL,"
    " rz DOUBLE PRECISION NOT NULL);"
    "CREATE INDEX instances_project ON instances (project);"
    "CREATE TABLE operations (project TEXT NOT NULL REFERENCES projects (name),"
    " oid TEXT NOT NULL, ident TEXT NOT NULL, name TEXT NOT NULL, seq INTEGER NOT NULL,"
    " PRIMARY KEY (project, oid));"
    "CREATE TABLE process_idents (project TEXT NOT NULL REFERENCES projects (name),"
    " ident TEXT NOT NULL, operation TEXT NOT NULL, name TEXT NOT NULL, seq INTEGER NOT NULL,"
    " eye_x DOUBLE PRECISION NOT NULL, eye_y DOUBLE PRECISION NOT NULL,"
    " eye_z DOUBLE PRECISION NOT NULL, target_x DOUBLE PRECISION NOT NULL,"
    " target_y DOUBLE PRECISION NOT NULL, target_z DOUBLE PRECISION NOT NULL,"
    " PRIMARY KEY (project, ident));",
    // Version 2: what the positioning commands apply.
    "CREATE TABLE states (project TEXT NOT NULL REFERENCES projects (name),"
    " operation TEXT NOT NULL, target TEXT NOT NULL, visible INTEGER NOT NULL,"
    " seq INTEGER NOT NULL);"
    "CREATE TABLE sim_positions (project TEXT NOT NULL REFERENCES projects (name),"
    " operation TEXT NOT NULL, target TEXT NOT NULL, seq INTEGER NOT NULL,"
    " x DOUBLE PRECISION NOT NULL, y DOUBLE PRECISION NOT NULL, z DOUBLE PRECISION NOT NULL,"
    " rz DOUBLE PRECISION NOT NULL);",
};

bool Fail(std::string* error, const std::string& text) {
  *error = text;
  return false;
}

}  // namespace

bool ReadSchemaVersion(PlanningDb& db, int* version, std::string* error) {
  if (!db.HasTable("schema_version")) {
    int tables = db.TableCount();
    if (tables < 0) return Fail(error, db.error());
    if (tables > 0) return Fail(error, "it holds tables but no schema_version table");
    *version = 0;
    return true;
  }
  Rows rows;
  if (!db.Run("SELECT version FROM schema_version", {}, &rows)) return Fail(error, db.error());
  if (rows.size() != 1) return Fail(error, "its schema_version table does not hold one row");
  try {
    *version = std::stoi(rows[0][0]);
  } catch (const std::exception&) {
    return Fail(error, "its schema version '" + rows[0][0] + "' is not a number");
  }
  return true;
}

bool CheckSchemaVersion(PlanningDb& db, const std::string& url, std::string* error) {
  int version = 0;
  std::string cause;
  if (!ReadSchemaVersion(db, &version, &cause)) {
    return Fail(error, "planning database " + url + " cannot be used: " + cause);
  }
  if (version == kSchemaVersion) return true;
  if (version > kSchemaVersion) {
    return Fail(error, "planning database " + url + " has schema version " +
                           std::to_string(version) + ", newer than this build's " +
                           std::to_string(kSchemaVersion));
  }
  if (version == 0) {
    return Fail(error, "planning database " + url +
                           " holds no planning schema (create it with: nomsoi db init --server " +
                           url + ")");
  }
  return Fail(error, "planning database " + url + " has schema version " + std::to_string(version) +
                         ", older than this build's " + std::to_string(kSchemaVersion) +
                         " (upgrade it with: nomsoi db init --server " + url + ")");
}

bool MigrateSchema(PlanningDb& db, const std::string& url, int target, std::string* error) {
  int version = 0;
  std::string cause;
  if (!ReadSchemaVersion(db, &version, &cause)) {
    return Fail(error, "planning database " + url + " refused: " + cause);
  }
  if (version > kSchemaVersion) {
    return Fail(error, "planning database " + url + " refused: its schema version " +
                           std::to_string(version) + " is newer than this build's " +
                           std::to_string(kSchemaVersion));
  }
  if (version >= target) return true;
  std::string script = "BEGIN;";
  for (int step = version + 1; step <= target; ++step) script += kSteps[step - 1];
  script += version == 0 ? "INSERT INTO schema_version (version) VALUES ("
                         : "UPDATE schema_version SET version = (";
  script += std::to_string(target) + ");COMMIT;";
  if (!db.RunScript(script)) {
    std::string message = db.error();
    db.RunScript("ROLLBACK");
    return Fail(error, "cannot create the schema in planning database " + url + ": " + message);
  }
  return true;
}

}  // namespace nomzub::proxy
