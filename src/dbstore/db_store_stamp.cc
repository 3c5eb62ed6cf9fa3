// The validity mark of data cached from a store connection.
//
// Data read through a connection stays valid while its data version (commits of other
// connections), the rows changed by this connection and the rollbacks it saw are all
// unchanged. Inside a transaction the connection reads one snapshot: once checked there,
// only its own writes can change what it reads (a rollback ends the transaction), so the
// version is not read again until the transaction ends. The key-value cache leaves out of
// the count the rows its connection changed in other tables (db_store_key_value.cc).
//
// The data version is PRAGMA data_version, or the pager's counter, which SQLite updates
// when a read transaction begins and which also moves with the connection's own commits.
// The pager's counter can be taken after a statement without running one: that stamps
// exactly the snapshot the statement read.
#include "dbstore/db_store_connection.h"

namespace DBStore {
namespace {

const char kReadDataVersionSql[] = "PRAGMA data_version";

int ReadDataVersion(const std::shared_ptr<StoreConnection>& conn, internal::StampVersion source,
                    int64_t* version) {
  if (source != internal::StampVersion::kPagerOfLastRead) {
    StmtPtr stmt = internal::Prepare(conn, kReadDataVersionSql, kBusyTimeoutMs);
    if (!stmt) return 1;
    int rc = sqlite3_step(stmt.get());
    if (rc != SQLITE_ROW) {
      internal::LogSqliteError(conn->db(), rc, "Reading the data version", kReadDataVersionSql);
      return 1;
    }
    if (source == internal::StampVersion::kPragma) {
      *version = sqlite3_column_int64(stmt.get(), 0);
      return 0;
    }
  }
  unsigned int pager_version = 0;
  const int rc =
      sqlite3_file_control(conn->db(), "main", SQLITE_FCNTL_DATA_VERSION, &pager_version);
  if (rc != SQLITE_OK) {
    internal::LogSqliteError(conn->db(), rc, "Reading the data version",
                             "SQLITE_FCNTL_DATA_VERSION");
    return 1;
  }
  *version = pager_version;
  return 0;
}

}  // namespace

int RefreshStoreStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp) {
  return internal::RefreshStamp(conn, stamp, nullptr, internal::StampVersion::kPagerAfterRead);
}

int StampLastRead(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp) {
  return internal::RefreshStamp(conn, stamp, nullptr, internal::StampVersion::kPagerOfLastRead);
}

namespace internal {

int RefreshStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp,
                 const int64_t* uncounted_changes, StampVersion version) {
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
  if (ReadDataVersion(conn, version, &data_version) != 0) {
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
