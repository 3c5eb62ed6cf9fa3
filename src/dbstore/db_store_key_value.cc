// The key-value table of host-wide flags, with a per-connection cache of the texts read.
//
// Host flags are read on hot paths (once per row of some reads). A cached text stays valid
// while the connection's store stamp is unchanged (see RefreshStoreStamp).
#include <sys/stat.h>

#include <cctype>
#include <cerrno>

#include "dbstore/db_store_connection.h"

namespace DBStore {
namespace internal {

const char kReadKeyValueSql[] = "SELECT Value FROM KeyValue WHERE Key = ?1";
const char kWriteKeyValueSql[] = "INSERT OR REPLACE INTO KeyValue (Key, Value) VALUES (?1, ?2)";

bool MentionsKeyValueTable(std::string_view sql) {
  static constexpr std::string_view kTable = "keyvalue";
  for (size_t at = 0; at + kTable.size() <= sql.size(); ++at) {
    if (sqlite3_strnicmp(sql.data() + at, kTable.data(), kTable.size()) == 0) return true;
  }
  return false;
}

bool IsRollback(std::string_view sql) {
  static constexpr std::string_view kRollback = "rollback";
  size_t at = 0;
  while (at < sql.size() && std::isspace(static_cast<unsigned char>(sql[at]))) ++at;
  return sql.size() - at >= kRollback.size() &&
         sqlite3_strnicmp(sql.data() + at, kRollback.data(), kRollback.size()) == 0;
}

void NoteChanges(StoreConnection& conn, const StmtPtr& stmt, int64_t total_before) {
  CachedText* text = stmt.get_deleter().text;
  // A rollback to a savepoint undoes writes without lowering the change count and without
  // the rollback hook: counted here, so that values read since are read again.
  if (text != nullptr && text->rolls_back < 0) text->rolls_back = IsRollback(text->sql);
  if (text != nullptr ? text->rolls_back != 0 : IsRollback(sqlite3_sql(stmt.get()))) {
    ++conn.rollbacks;
    return;
  }
  sqlite3* db = conn.db();
  const int64_t changed = sqlite3_total_changes64(db) - total_before;
  // The statement's own count leaves out rows its triggers changed.
  if (changed <= 0 || changed != sqlite3_changes64(db)) return;
  bool mentions;
  if (text != nullptr) {
    if (text->mentions_key_values < 0) text->mentions_key_values = MentionsKeyValueTable(text->sql);
    mentions = text->mentions_key_values != 0;
  } else {
    mentions = MentionsKeyValueTable(sqlite3_sql(stmt.get()));
  }
  if (!mentions) conn.key_values().other_table_changes += changed;
}

}  // namespace internal

namespace {

// Empties the cache when the database may have changed since it was filled: another
// connection's commit, a rollback, or a write of this connection that may have reached the
// key-value table.
int RefreshCache(const std::shared_ptr<StoreConnection>& conn) {
  internal::KeyValueCache& cache = conn->key_values();
  const int changed = internal::RefreshStamp(conn, &cache.stamp, &cache.other_table_changes,
                                             internal::StampVersion::kPragma);
  if (changed < 0) return 1;
  if (changed > 0) cache.values.clear();
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
