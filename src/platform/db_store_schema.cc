// The tables of a store, created when the file is new; PRAGMA user_version records the
// schema version so that later versions can migrate.
//
// Every lookup of the library filters by Name, ConfigGroup and Component and sometimes by
// Identifier, so the uniqueness constraints list the key columns in that order: the
// automatic index serves both the three-column and the four-column lookups.
#include "platform/db_store_connection.h"
#include "setvault/logger.h"

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

int ReadUserVersion(const std::shared_ptr<StoreConnection>& conn, int* version) {
  StmtPtr stmt = Prepare(conn, "PRAGMA user_version", kBusyTimeoutMs);
  if (!stmt) return SQLITE_ERROR;
  int rc = sqlite3_step(stmt.get());
  if (rc != SQLITE_ROW) {
    LogSqliteError(conn->db(), rc, "Reading the schema version", "PRAGMA user_version");
    return rc;
  }
  *version = sqlite3_column_int(stmt.get(), 0);
  return SQLITE_OK;
}

int CreateTables(const std::shared_ptr<StoreConnection>& conn) {
  for (const char* sql : kCreateStatements) {
    int rc = RunSql(conn, sql);
    if (rc != SQLITE_OK) return rc;
  }
  static const std::string set_version =
      "PRAGMA user_version = " + std::to_string(kStoreSchemaVersion);
  return RunSql(conn, set_version);
}

int CheckVersion(const std::shared_ptr<StoreConnection>& conn, int version) {
  if (version == kStoreSchemaVersion) return SQLITE_OK;
  KorvoSetvault::SVLogger::Log(0,
                               "Store database %s has schema version %d; this library "
                               "knows version %d",
                               conn->path().c_str(), version, kStoreSchemaVersion);
  return SQLITE_ERROR;
}

}  // namespace

int EnsureStoreSchema(const std::shared_ptr<StoreConnection>& conn) {
  int version = 0;
  int rc = ReadUserVersion(conn, &version);
  if (rc != SQLITE_OK) return rc;
  if (version != 0) return CheckVersion(conn, version);

  // Another process may be creating the same file: decide under the write lock.
  rc = RunSql(conn, "BEGIN IMMEDIATE");
  if (rc != SQLITE_OK) return rc;
  rc = ReadUserVersion(conn, &version);
  if (rc == SQLITE_OK) rc = version == 0 ? CreateTables(conn) : CheckVersion(conn, version);
  if (rc == SQLITE_OK) rc = RunSql(conn, "COMMIT");
  if (rc != SQLITE_OK && !sqlite3_get_autocommit(conn->db())) RunSql(conn, "ROLLBACK");
  return rc;
}

}  // namespace internal
}  // namespace DBStore
