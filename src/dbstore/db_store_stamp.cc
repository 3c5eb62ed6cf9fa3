// The validity mark of data cached from a store connection.
//
// Data read through a connection stays valid while PRAGMA data_version (commits of other
// connections), the rows changed by this connection and the rollbacks it saw are all
// unchanged. Inside a transaction the connection reads one snapshot: once checked there,
// only its own writes can change what it reads (a rollback ends the transaction), so the
// pragma is skipped until the transaction ends. The key-value cache leaves out of the count
// the rows its connection changed in other tables (db_store_key_value.cc).
#include "dbstore/db_store_connection.h"

namespace DBStore {
namespace {

const char kReadDataVersionSql[] = "PRAGMA data_version";

int ReadDataVersion(const std::shared_ptr<StoreConnection>& conn, int64_t* version) {
  StmtPtr stmt = internal::Prepare(conn, kReadDataVersionSql, kBusyTimeoutMs);
  if (!stmt) return 1;
  int rc = sqlite3_step(stmt.get());
  if (rc != SQLITE_ROW) {
    internal::LogSqliteError(conn->db(), rc, "Reading the data version", kReadDataVersionSql);
    return 1;
  }
  *version = sqlite3_column_int64(stmt.get(), 0);
  return 0;
}

}  // namespace

int RefreshStoreStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp) {
  return internal::RefreshStamp(conn, stamp, nullptr);
}

namespace internal {

int RefreshStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp,
                 const int64_t* uncounted_changes) {
  OperationGate gate;
  if (!UsableHere(conn) || (conn->db() == nullptr && !ReadyConnection(conn, false))) {
    stamp->valid = false;
    return -1;
  }
  const uint64_t transaction =
      conn->depth > 0 && !sqlite3_get_autocommit(conn->db()) ? conn->transaction_serial : 0;
  const int64_t total_changes =
      sqlite3_total_changes64(conn->db()) - (uncounted_changes != nullptr ? *uncounted_changes : 0);
  if (transaction != 0 && stamp->valid && stamp->transaction == transaction) {
    // Checked in this transaction already: the data version cannot have moved since.
    const bool unchanged =
        stamp->total_changes == total_changes && stamp->rollbacks == conn->rollbacks;
    stamp->total_changes = total_changes;
    stamp->rollbacks = conn->rollbacks;
    return unchanged ? 0 : 1;
  }
  int64_t data_version = 0;
  if (ReadDataVersion(conn, &data_version) != 0) {
    stamp->valid = false;
    return -1;
  }
  const bool unchanged = stamp->valid && stamp->data_version == data_version &&
                         stamp->total_changes == total_changes &&
                         stamp->rollbacks == conn->rollbacks;
  stamp->data_version = data_version;
  stamp->total_changes = total_changes;
  stamp->rollbacks = conn->rollbacks;
  stamp->transaction = transaction;
  stamp->valid = true;
  return unchanged ? 0 : 1;
}

}  // namespace internal
}  // namespace DBStore
