// The tables of a store, created when the file is new; PRAGMA application_id marks the file
// as a store and PRAGMA user_version records the schema version so that later versions can
// migrate. Files without the mark are not touched.
//
// Every lookup of the library filters by Name, ConfigGroup and Component and sometimes by
// Identifier, so the uniqueness constraints list the key columns in that order: the
// automatic index serves both the three-column and the four-column lookups.
#include <iterator>
#include <string>

#include "dbstore/db_store_connection.h"

namespace DBStore {
namespace internal {
namespace {

constexpr const char* kCreateStatements[] = {
    "CREATE TABLE IF NOT EXISTS Config ("
    " Identifier TEXT NOT NULL DEFAULT '',"
    " Name TEXT NOT NULL,"
    " ConfigGroup TEXT NOT NULL,"
    " Component TEXT NOT NULL,"
    " Version TEXT,"
    " CreationTime TEXT NOT NULL DEFAULT (DATETIME(CURRENT_TIMESTAMP)),"
    " ModifiedTime TEXT NOT NULL DEFAULT (DATETIME(CURRENT_TIMESTAMP)),"
    " Revision INTEGER NOT NULL DEFAULT 1,"
    " Success INTEGER NOT NULL DEFAULT 1 CHECK (Success IN (0, 1)),"
    " DesiredValue TEXT DEFAULT NULL,"
    " AutoConfValue TEXT,"
    " UserValue TEXT,"
    " VitalValue TEXT,"
    " CachedValue TEXT,"
    " UNIQUE (Name, ConfigGroup, Component, Identifier))",

    // An UPDATE that does not set ModifiedTime itself gets the current time. Recursive
    // triggers are off, so the trigger's own UPDATE does not fire it again.
    "CREATE TRIGGER IF NOT EXISTS ConfigModifiedTime AFTER UPDATE ON Config FOR EACH ROW"
    " WHEN NEW.ModifiedTime IS OLD.ModifiedTime"
    " BEGIN"
    " UPDATE Config SET ModifiedTime = DATETIME(CURRENT_TIMESTAMP) WHERE rowid = NEW.rowid;"
    " END",

    "CREATE TABLE IF NOT EXISTS DefaultConfig ("
    " Identifier TEXT NOT NULL DEFAULT '',"
    " Name TEXT NOT NULL,"
    " ConfigGroup TEXT NOT NULL,"
    " Component TEXT NOT NULL,"
    " Version TEXT,"
    " Value TEXT,"
    " VitalValue TEXT,"
    " CachedValue TEXT,"
    " UNIQUE (Name, ConfigGroup, Component, Identifier))",

    "CREATE TABLE IF NOT EXISTS DesiredUserConfig ("
    " Identifier TEXT NOT NULL DEFAULT '',"
    " Name TEXT NOT NULL,"
    " ConfigGroup TEXT NOT NULL,"
    " Component TEXT NOT NULL,"
    " Version TEXT,"
    " Value TEXT,"
    " VitalValue TEXT,"
    " CachedValue TEXT,"
    " BootAction TEXT NOT NULL CHECK (BootAction IN ('SET', 'DELETE_INSTANCE', 'DELETE')),"
    " UNIQUE (Name, ConfigGroup, Component, Identifier))",

    "CREATE TABLE IF NOT EXISTS KeyValue ("
    " Key TEXT NOT NULL PRIMARY KEY,"
    " Value TEXT NOT NULL) WITHOUT ROWID",
};

// Runs a statement yielding one integer into `out`. Returns the SQLite code.
int QueryInt(sqlite3* db, const char* sql, int* out) {
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
  if (rc == SQLITE_ROW) {
    *out = sqlite3_column_int(stmt, 0);
    rc = SQLITE_OK;
  }
  sqlite3_finalize(stmt);
  return rc;
}

// The number of this store's tables the file holds, and of all its tables.
const char kCountTablesSql[] =
    "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name IN "
    "('Config', 'DefaultConfig', 'DesiredUserConfig', 'KeyValue')";
const char kCountAllTablesSql[] = "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table'";

}  // namespace

int CreateStoreSchema(const std::shared_ptr<StoreConnection>& conn) {
  int rc = RunSql(conn, "BEGIN IMMEDIATE");
  for (size_t i = 0; rc == SQLITE_OK && i < std::size(kCreateStatements); ++i) {
    rc = RunSql(conn, kCreateStatements[i]);
  }
  static const std::string mark = "PRAGMA application_id = " + std::to_string(kStoreApplicationId);
  static const std::string version = "PRAGMA user_version = " + std::to_string(kStoreSchemaVersion);
  if (rc == SQLITE_OK) rc = RunSql(conn, mark);
  if (rc == SQLITE_OK) rc = RunSql(conn, version);
  if (rc == SQLITE_OK) rc = RunSql(conn, "COMMIT");
  if (rc != SQLITE_OK && !sqlite3_get_autocommit(conn->db())) RunSql(conn, "ROLLBACK");
  return rc;
}

int CheckStoreSchema(sqlite3* db, std::string* why) {
  int application_id = 0, version = 0, tables = 0, all_tables = 0;
  int rc = QueryInt(db, "PRAGMA application_id", &application_id);
  if (rc == SQLITE_OK) rc = QueryInt(db, "PRAGMA user_version", &version);
  if (rc == SQLITE_OK) rc = QueryInt(db, kCountTablesSql, &tables);
  if (rc == SQLITE_OK) rc = QueryInt(db, kCountAllTablesSql, &all_tables);
  if (rc != SQLITE_OK) {
    *why = std::string("cannot be read as a store: ") + sqlite3_errmsg(db);
    return rc;
  }
  const bool marked = application_id == kStoreApplicationId;
  if (!marked && !(application_id == 0 && version == kStoreSchemaVersion && tables == 4)) {
    *why = "is a SQLite database but not a setvault store (application id " +
           std::to_string(application_id) + ", schema version " + std::to_string(version) + ", " +
           std::to_string(all_tables) + " tables); it is left as it is";
    return SQLITE_ERROR;
  }
  if (version != kStoreSchemaVersion) {
    *why = "has store schema version " + std::to_string(version) + "; this library knows version " +
           std::to_string(kStoreSchemaVersion);
    return SQLITE_ERROR;
  }
  if (tables != 4) {
    *why = "is marked as a store but lacks some of its tables (" + std::to_string(tables) +
           " of 4): damaged";
    return SQLITE_CORRUPT;
  }
  return SQLITE_OK;
}

}  // namespace internal
}  // namespace DBStore
