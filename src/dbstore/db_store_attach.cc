// Attaching the schema database as "ss" for statements that join the store with it.
#include <sys/stat.h>

#include "dbstore/db_store_connection.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"

namespace DBStore {

int AttachSchemaStore(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn) return 1;
  if (conn->schema_attachments > 0 || conn->schema_detach_pending) {
    conn->schema_detach_pending = false;  // still attached: keep it
    ++conn->schema_attachments;
    return 0;
  }
  std::string path = KorvoSetvault::GetSchemaStorePath();
  struct stat info;
  // ATTACH would create a missing file; a missing schema database is an error instead.
  if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    KorvoSetvault::SVLogger::Log(0, "Schema database %s does not exist", path.c_str());
    return 1;
  }
  StmtPtr stmt = internal::Prepare(conn, "ATTACH DATABASE ?1 AS ss", kBusyTimeoutMs);
  int index = 1;
  if (!stmt || internal::Bind(conn, stmt, index, path, false) != 0 ||
      ExecuteStmt(conn, stmt, nullptr, nullptr, kBusyTimeoutMs) != 0) {
    return 1;
  }
  conn->schema_attachments = 1;
  return 0;
}

int DetachSchemaStore(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || conn->schema_attachments == 0 || !internal::UsableHere(conn)) return 1;
  if (conn->schema_attachments > 1) {
    --conn->schema_attachments;
    return 0;
  }
  if (!sqlite3_get_autocommit(conn->db())) {
    conn->schema_attachments = 0;
    conn->schema_detach_pending = true;
    return 0;
  }
  StmtPtr stmt = internal::Prepare(conn, "DETACH DATABASE ss", kBusyTimeoutMs);
  if (!stmt || ExecuteStmt(conn, stmt, nullptr, nullptr, kBusyTimeoutMs) != 0) return 1;
  conn->schema_attachments = 0;
  return 0;
}

namespace internal {

void FinishDeferredDetach(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn->schema_detach_pending || !sqlite3_get_autocommit(conn->db())) return;
  conn->schema_detach_pending = false;
  RunSql(conn, "DETACH DATABASE ss");
}

}  // namespace internal

}  // namespace DBStore
