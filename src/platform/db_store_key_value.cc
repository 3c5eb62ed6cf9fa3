// The key-value table of host-wide flags, with a per-connection cache of the texts read.
//
// Host flags are read on hot paths (once per row of some reads). A cached text stays valid
// while PRAGMA data_version (commits of other connections), the rows changed by this
// connection and the rollbacks seen by it are all unchanged. Inside this connection's own
// write transaction no other connection can commit, so once checked there the pragma is
// skipped until the transaction ends.
#include <sys/stat.h>

#include <cerrno>

#include "platform/db_store_connection.h"

namespace DBStore {
namespace internal {

const char kReadKeyValueSql[] = "SELECT Value FROM KeyValue WHERE Key = ?1";
const char kWriteKeyValueSql[] = "INSERT OR REPLACE INTO KeyValue (Key, Value) VALUES (?1, ?2)";

}  // namespace internal

namespace {

int ReadDataVersion(const std::shared_ptr<StoreConnection>& conn, int64_t* version) {
  internal::OperationGate gate;
  StmtPtr stmt = internal::Prepare(conn, "PRAGMA data_version", kBusyTimeoutMs);
  if (!stmt) return 1;
  int rc = sqlite3_step(stmt.get());
  if (rc != SQLITE_ROW) {
    internal::LogSqliteError(conn->db(), rc, "Reading the data version", "PRAGMA data_version");
    return 1;
  }
  *version = sqlite3_column_int64(stmt.get(), 0);
  return 0;
}

// Empties the cache when the database may have changed since it was filled.
int RefreshCache(const std::shared_ptr<StoreConnection>& conn) {
  internal::KeyValueCache& cache = conn->key_values();
  uint64_t transaction =
      conn->depth > 0 && !sqlite3_get_autocommit(conn->db()) ? conn->transaction_serial : 0;
  if (transaction != 0 && cache.valid && cache.transaction == transaction &&
      cache.total_changes == sqlite3_total_changes64(conn->db()) &&
      cache.rollbacks == conn->rollbacks) {
    return 0;
  }
  int64_t data_version = 0;
  if (ReadDataVersion(conn, &data_version) != 0) return 1;
  int64_t total_changes = sqlite3_total_changes64(conn->db());
  if (cache.valid && cache.data_version == data_version && cache.total_changes == total_changes &&
      cache.rollbacks == conn->rollbacks) {
    cache.transaction = transaction;
    return 0;
  }
  cache.values.clear();
  cache.data_version = data_version;
  cache.total_changes = total_changes;
  cache.rollbacks = conn->rollbacks;
  cache.transaction = transaction;
  cache.valid = true;
  return 0;
}

int CollectValue(void* context, int, char** texts, char**) {
  if (texts[0] != nullptr) static_cast<std::string*>(context)->assign(texts[0]);
  return 0;
}

}  // namespace

int ReadKeyValue(const std::string& key, std::string* out,
                 const std::shared_ptr<StoreConnection>& conn) {
  out->clear();
  if (!conn || !internal::UsableHere(conn)) return 1;
  struct stat info;
  if (conn->db() == nullptr && stat(conn->path().c_str(), &info) != 0 && errno == ENOENT) {
    return 0;  // a store never written holds no key; reading does not create it
  }
  if (RefreshCache(conn) != 0) return 1;
  internal::KeyValueCache& cache = conn->key_values();
  auto found = cache.values.find(key);
  if (found != cache.values.end()) {
    *out = found->second;
    return 0;
  }
  StmtPtr stmt = internal::Prepare(conn, internal::kReadKeyValueSql, kBusyTimeoutMs);
  int index = 1;
  if (!stmt || internal::Bind(conn, stmt, index, key, false) != 0) return 1;
  if (ExecuteStmt(conn, stmt, CollectValue, out, kBusyTimeoutMs) != 0) {
    out->clear();
    return 1;
  }
  cache.values.emplace(key, *out);
  return 0;
}

int WriteKeyValue(const std::string& key, const std::string& value,
                  const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || (conn->depth == 0 && !internal::ReadyConnection(conn, true))) return 1;
  StmtPtr stmt = internal::Prepare(conn, internal::kWriteKeyValueSql, kBusyTimeoutMs);
  int index = 1;
  if (!stmt || internal::Bind(conn, stmt, index, key, false) != 0 ||
      internal::Bind(conn, stmt, index, value, false) != 0) {
    return 1;
  }
  return ExecuteStmt(conn, stmt, nullptr, nullptr, kBusyTimeoutMs);
}

}  // namespace DBStore
