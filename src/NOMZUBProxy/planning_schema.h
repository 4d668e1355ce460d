// The planning schema: its versions, the steps from one to the next, and the version check.
//
// Tables (every project-owned row carries the project's name):
//   schema_version  one row: the schema version of the database
//   projects        name, description
//   accounts        login, salt (hex), iterations, password_hash (hex PBKDF2-HMAC-SHA-256)
//   meshes          project, oid, positions ("x y z ..."), indices ("a b c ...", triangles)
//   products        project, oid, name, kind (product|resource|manufactured|context), mesh
//   instances       project, parent (product OID; NULL: a top-level entry of the package), product,
//                   ident, name, seq, x, y, z, rz (placement: translation and degrees about Z)
//   operations      project, oid, ident, name, seq
//   process_idents  project, ident, operation, name, seq, eye_x/y/z, target_x/y/z (the views)
//   states          project, operation, target (ident path), visible (0|1), seq      [version 2]
//   sim_positions   project, operation, target (ident path), seq, x, y, z, rz        [version 2]
#ifndef NOM_NOMZUBPROXY_PLANNING_SCHEMA_H_
#define NOM_NOMZUBPROXY_PLANNING_SCHEMA_H_

#include <string>

#include "NOMZUBProxy/planning_db.h"

namespace nomzub::proxy {

// The schema version this build reads and writes.
constexpr int kSchemaVersion = 2;

// The database's schema version: 0 for an empty database (no table at all). False, with the
// cause in *error, when it cannot be read or the database holds tables but no version (not a
// planning database).
bool ReadSchemaVersion(PlanningDb& db, int* version, std::string* error);

// Checks that the database has exactly this build's schema version; false with the cause
// (older: upgrade with "nomsoi db init"; newer; not a planning database; unreadable).
bool CheckSchemaVersion(PlanningDb& db, const std::string& url, std::string* error);

// Brings the database from its version to target (1..kSchemaVersion) in one transaction. A
// database of a newer version, or one that is not a planning database, is refused untouched.
bool MigrateSchema(PlanningDb& db, const std::string& url, int target, std::string* error);

}  // namespace nomzub::proxy

#endif  // NOM_NOMZUBPROXY_PLANNING_SCHEMA_H_
