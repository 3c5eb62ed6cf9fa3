// Statement preparation through the per-connection cache, and parameter binding.
#include <cctype>

#include "platform/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace internal {

StatementCache::~StatementCache() { Clear(); }

std::string_view StatementCache::Key(std::string_view sql) {
  while (!sql.empty() && std::isspace(static_cast<unsigned char>(sql.back()))) {
    sql.remove_suffix(1);
  }
  return sql;
}

sqlite3_stmt* StatementCache::Take(std::string_view sql) {
  auto found = entries_.find(Key(sql));
  if (found == entries_.end() || found->second->idle.empty()) return nullptr;
  sqlite3_stmt* stmt = found->second->idle.back();
  found->second->idle.pop_back();
  return stmt;
}

void StatementCache::Give(sqlite3_stmt* stmt) {
  // SQLite keeps the prepared text up to the end of the statement, which is the lookup key
  // of that text (Prepare accepts nothing else after the statement).
  std::string_view sql = Key(sqlite3_sql(stmt));
  auto found = entries_.find(sql);
  if (found == entries_.end()) {
    if (entries_.size() >= kMaxTexts) {
      sqlite3_finalize(stmt);
      return;
    }
    auto entry = std::make_unique<Entry>();
    entry->sql.assign(sql.data(), sql.size());
    std::string_view key = entry->sql;
    found = entries_.emplace(key, std::move(entry)).first;
  }
  if (found->second->idle.size() >= kMaxIdlePerText) {
    sqlite3_finalize(stmt);
    return;
  }
  found->second->idle.push_back(stmt);
}

void StatementCache::Clear() {
  for (auto& entry : entries_) {
    for (sqlite3_stmt* stmt : entry.second->idle) sqlite3_finalize(stmt);
  }
  entries_.clear();
}

size_t StatementCache::IdleCount() const {
  size_t count = 0;
  for (const auto& entry : entries_) count += entry.second->idle.size();
  return count;
}

namespace {

bool OnlyBlanksAndSemicolons(const char* text, const char* end) {
  for (; text < end && *text != '\0'; ++text) {
    if (*text != ';' && !std::isspace(static_cast<unsigned char>(*text))) return false;
  }
  return true;
}

}  // namespace

StmtPtr Prepare(const std::shared_ptr<StoreConnection>& conn, std::string_view sql,
                int busy_timeout_ms) {
  if (!conn) {
    KorvoSetvault::SVLogger::Log(0, "Prepare without a connection: %.*s",
                                 static_cast<int>(sql.size()), sql.data());
    return StmtPtr();
  }
  const std::shared_ptr<StatementCache>& cache = conn->cache();
  if (sqlite3_stmt* cached = cache->Take(sql)) return StmtPtr(cached, SqliteStmtDeleter{cache});

  conn->UseBusyTimeout(busy_timeout_ms);
  sqlite3_stmt* stmt = nullptr;
  const char* tail = nullptr;
  int rc = sqlite3_prepare_v3(conn->db(), sql.data(), static_cast<int>(sql.size()),
                              SQLITE_PREPARE_PERSISTENT, &stmt, &tail);
  if (rc != SQLITE_OK || stmt == nullptr) {
    if (rc == SQLITE_OK) rc = SQLITE_MISUSE;  // empty text: nothing to run
    LogSqliteError(conn->db(), rc, "Prepare", sql);
    sqlite3_finalize(stmt);
    return StmtPtr();
  }
  if (!OnlyBlanksAndSemicolons(tail, sql.data() + sql.size())) {
    KorvoSetvault::SVLogger::Log(0, "Prepare failed: more than one statement in [%.*s]",
                                 static_cast<int>(sql.size()), sql.data());
    sqlite3_finalize(stmt);
    return StmtPtr();
  }
  return StmtPtr(stmt, SqliteStmtDeleter{cache});
}

namespace {

int CheckBind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int index,
              int rc, int& next) {
  if (rc == SQLITE_OK) {
    next = index + 1;
    return 0;
  }
  (void)conn;
  KorvoSetvault::SVLogger::Log(0, "Bind of parameter %d failed: SQLite error %d (%s) [%s]",
                               index, rc, sqlite3_errstr(rc),
                               stmt ? sqlite3_sql(stmt.get()) : "no statement");
  return 1;
}

}  // namespace

int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index,
         std::string_view text, bool copy) {
  if (!stmt) return CheckBind(conn, stmt, index, SQLITE_MISUSE, index);
  // A default-constructed view has no data pointer; SQLite would read that as NULL.
  const char* data = text.data() != nullptr ? text.data() : "";
  int rc = sqlite3_bind_text64(stmt.get(), index, data, text.size(),
                               copy ? SQLITE_TRANSIENT : SQLITE_STATIC, SQLITE_UTF8);
  return CheckBind(conn, stmt, index, rc, index);
}

int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index,
         NullableSV text) {
  if (!stmt) return CheckBind(conn, stmt, index, SQLITE_MISUSE, index);
  if (!text) return CheckBind(conn, stmt, index, sqlite3_bind_null(stmt.get(), index), index);
  return Bind(conn, stmt, index, *text, false);
}

int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index,
         int value) {
  if (!stmt) return CheckBind(conn, stmt, index, SQLITE_MISUSE, index);
  return CheckBind(conn, stmt, index, sqlite3_bind_int(stmt.get(), index, value), index);
}

}  // namespace internal

void SqliteStmtDeleter::operator()(sqlite3_stmt* stmt) const noexcept {
  if (stmt == nullptr) return;
  std::shared_ptr<internal::StatementCache> owner = cache.lock();
  if (!owner) {
    sqlite3_finalize(stmt);
    return;
  }
  sqlite3_reset(stmt);
  sqlite3_clear_bindings(stmt);
  try {
    owner->Give(stmt);
  } catch (...) {  // no memory for the cache entry: just drop the statement
    sqlite3_finalize(stmt);
  }
}

}  // namespace DBStore
