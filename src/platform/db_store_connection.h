// The connection object behind DBStore::StoreConnection and the pieces of state that the
// layer's parts share: statement cache, transaction depth, key-value cache.
#ifndef SETVAULT_SRC_PLATFORM_DB_STORE_CONNECTION_H_
#define SETVAULT_SRC_PLATFORM_DB_STORE_CONNECTION_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db_store.h"

namespace DBStore {
namespace internal {

// One SQL text of a statement cache and its idle statements.
struct CachedText {
  std::string sql;
  std::vector<sqlite3_stmt*> idle;
};

// Idle prepared statements of one connection, keyed by SQL text. Statements handed out
// are owned by their StmtPtr; the deleter gives them back to their CachedText.
class StatementCache {
 public:
  StatementCache() = default;
  ~StatementCache();
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;

  // The entry of `sql` (already a Key()), or null.
  CachedText* Find(std::string_view sql);
  // The entry of `sql`, created when missing; null when the cache holds its maximum of
  // distinct texts.
  CachedText* FindOrAdd(std::string_view sql);
  // Keeps `stmt` (already reset and unbound) in `text` for reuse, or finalizes it when
  // `text` is null or holds enough idle statements.
  void Give(CachedText* text, sqlite3_stmt* stmt);
  // Finalizes every idle statement. The texts stay: statements handed out point at them.
  void Clear();

  size_t IdleCount() const;

  // The cache key of a text: the text without trailing blanks.
  static std::string_view Key(std::string_view sql);

 private:
  static constexpr size_t kMaxTexts = 256;      // distinct SQL texts kept
  static constexpr size_t kMaxIdlePerText = 4;  // idle copies of one text
  static constexpr size_t kRecentSlots = 32;

  // Most texts are literals passed again and again from the same address: a small table
  // by address finds them without hashing the whole text (the text is still compared).
  struct Recent {
    const char* data = nullptr;
    CachedText* text = nullptr;
  };
  static size_t Slot(const char* data) {
    return (reinterpret_cast<uintptr_t>(data) >> 3) % kRecentSlots;
  }

  Recent recent_[kRecentSlots];
  // Keys view the text owned by their entry.
  std::unordered_map<std::string_view, std::unique_ptr<CachedText>> entries_;
};

// Cached key-value texts, valid while the database is unchanged.
struct KeyValueCache {
  StoreStamp stamp;
  std::unordered_map<std::string, std::string> values;  // absent key: empty text
};

}  // namespace internal

class StoreConnection {
 public:
  // Takes ownership of `db`, an open handle of the store at `path`.
  StoreConnection(sqlite3* db, std::string path);
  ~StoreConnection();
  StoreConnection(const StoreConnection&) = delete;
  StoreConnection& operator=(const StoreConnection&) = delete;

  sqlite3* db() const { return db_; }
  const std::string& path() const { return path_; }

  // Sets SQLite's busy time-out when it differs from the one in force.
  void UseBusyTimeout(int milliseconds);

  const std::shared_ptr<internal::StatementCache>& cache() const { return cache_; }
  internal::KeyValueCache& key_values() { return key_values_; }

  // Transaction nesting.
  int depth = 0;
  uint64_t transaction_serial = 0;  // raised by every outermost begin
  bool doomed = false;              // an inner level was cancelled: the outer commit rolls back
  // Rollbacks seen on this connection (explicit or by the engine after an error).
  uint64_t rollbacks = 0;
  // Nested attachments of the schema database.
  int schema_attachments = 0;
  // The last detach came inside a transaction that may have read "ss" (SQLite refuses that
  // detach): it happens when the transaction ends.
  bool schema_detach_pending = false;

 private:
  sqlite3* db_;
  std::string path_;
  int busy_timeout_ms_ = -1;
  std::shared_ptr<internal::StatementCache> cache_;
  internal::KeyValueCache key_values_;
};

namespace internal {

// The statements of the key-value table.
extern const char kReadKeyValueSql[];
extern const char kWriteKeyValueSql[];

// Prepares (through the cache) and steps `sql`, which takes no parameters and whose rows
// are ignored. Returns the SQLite result code (SQLITE_OK when it ran to the end).
int RunSql(const std::shared_ptr<StoreConnection>& conn, std::string_view sql);

// Logs a failed SQLite call: what failed, SQLite's extended code and message.
void LogSqliteError(sqlite3* db, int code, const char* what, std::string_view sql);

// Runs the detach of the schema database that waited for the transaction to end.
void FinishDeferredDetach(const std::shared_ptr<StoreConnection>& conn);

// Creates the tables, index, trigger and key-value table of a new store, or checks the
// schema version of an existing one. Returns SQLITE_OK or the failing code.
int EnsureStoreSchema(const std::shared_ptr<StoreConnection>& conn);

}  // namespace internal
}  // namespace DBStore

#endif  // SETVAULT_SRC_PLATFORM_DB_STORE_CONNECTION_H_
