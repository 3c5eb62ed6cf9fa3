// Statement preparation through the per-connection cache, and parameter binding.
#include <cctype>
#include <cstring>
#include <new>

#include "dbstore/db_store_connection.h"
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

CachedText* StatementCache::Find(std::string_view sql) {
  Recent& recent = recent_[Slot(sql.data())];
  if (recent.data == sql.data() && recent.text->sql.size() == sql.size() &&
      std::memcmp(recent.text->sql.data(), sql.data(), sql.size()) == 0) {
    return recent.text;
  }
  auto found = entries_.find(sql);
  if (found == entries_.end()) return nullptr;
  recent = Recent{sql.data(), found->second.get()};
  return found->second.get();
}

CachedText* StatementCache::FindOrAdd(std::string_view sql) {
  if (CachedText* text = Find(sql)) return text;
  if (entries_.size() >= kMaxTexts) return nullptr;
  auto text = std::make_unique<CachedText>();
  text->sql.assign(sql.data(), sql.size());
  std::string_view key = text->sql;
  CachedText* added = entries_.emplace(key, std::move(text)).first->second.get();
  recent_[Slot(sql.data())] = Recent{sql.data(), added};
  return added;
}

void StatementCache::Give(CachedText* text, sqlite3_stmt* stmt) {
  if (text == nullptr || text->idle.size() >= kMaxIdlePerText) {
    sqlite3_finalize(stmt);
    return;
  }
  text->idle.push_back(stmt);
}

void StatementCache::Clear() {
  for (auto& entry : entries_) {
    for (sqlite3_stmt* stmt : entry.second->idle) sqlite3_finalize(stmt);
    entry.second->idle.clear();
  }
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
  if (!UsableHere(conn)) return StmtPtr();
  if (conn->db() == nullptr && !ReadyConnection(conn, false)) return StmtPtr();
  const std::shared_ptr<StatementCache>& cache = conn->cache();
  std::string_view key = StatementCache::Key(sql);
  CachedText* text = cache->Find(key);
  if (text != nullptr && !text->idle.empty()) {
    sqlite3_stmt* cached = text->idle.back();
    text->idle.pop_back();
    return StmtPtr(cached, SqliteStmtDeleter{cache, text});
  }

  OperationGate gate;
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
  if (text == nullptr) {
    try {
      text = cache->FindOrAdd(key);
    } catch (const std::bad_alloc&) {  // not cached: finalized when released
    }
  }
  return StmtPtr(stmt, SqliteStmtDeleter{cache, text});
}

namespace {

int CheckBind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int index, int rc,
              int& next) {
  if (rc == SQLITE_OK) {
    next = index + 1;
    return 0;
  }
  (void)conn;
  KorvoSetvault::SVLogger::Log(0, "Bind of parameter %d failed: SQLite error %d (%s) [%s]", index,
                               rc, sqlite3_errstr(rc),
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

int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index, int value) {
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
    owner->Give(text, stmt);
  } catch (...) {  // no memory to keep it: just drop the statement
    sqlite3_finalize(stmt);
  }
}

}  // namespace DBStore
