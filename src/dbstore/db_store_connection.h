// The connection object behind DBStore::StoreConnection and the pieces of state that the
// layer's parts share: statement cache, transaction depth, key-value cache.
#ifndef SETVAULT_SRC_DBSTORE_DB_STORE_CONNECTION_H_
#define SETVAULT_SRC_DBSTORE_DB_STORE_CONNECTION_H_

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dbstore/db_store.h"
#include "dbstore/db_store_after_commit.h"
#include "dbstore/path_watch.h"

namespace DBStore {
namespace internal {

// One SQL text of a statement cache and its idle statements.
struct CachedText {
  std::string sql;
  std::vector<sqlite3_stmt*> idle;
  // Whether the text names the key-value table (MentionsKeyValueTable), once asked.
  int8_t mentions_key_values = -1;
  // Whether the text is a ROLLBACK statement (IsRollback), once asked.
  int8_t rolls_back = -1;
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

// Cached key-value texts, valid while the database is unchanged. The connection's own
// writes count only when they may have reached the key-value table: the stamp's change
// count is the connection's total less `other_table_changes`.
struct KeyValueCache {
  StoreStamp stamp;
  std::unordered_map<std::string, std::string> values;  // absent key: empty text
  // Rows this connection changed through statements that cannot have changed the key-value
  // table (NoteChanges).
  int64_t other_table_changes = 0;
};

// Counts the rows that `stmt`, a statement of `conn` just stepped to its end without a row
// callback, changed as rows of other tables than the key-value table: those of a statement
// whose text does not name that table and whose changes were all its own (none made by a
// trigger, which could write anywhere). `total_before` is the connection's total change
// count before the statement ran.
void NoteChanges(StoreConnection& conn, const StmtPtr& stmt, int64_t total_before);

// Where a stamp's data version comes from. A stamp is only ever compared with one from
// the same source: the pager's also moves with the connection's own commits.
enum class StampVersion {
  kPragma,           // PRAGMA data_version: other connections' commits only
  kPagerAfterRead,   // the pager's, after PRAGMA data_version began a read transaction
  kPagerOfLastRead,  // the pager's, as the last read transaction left it: no statement
};

// RefreshStoreStamp with `*uncounted_changes` (when not null) taken off the connection's
// total change count (rows changed that cannot have changed what the stamp guards), and
// the data version read as `version` says.
int RefreshStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp,
                 const int64_t* uncounted_changes, StampVersion version);

// True when `sql` names the key-value table (in any letter case).
bool MentionsKeyValueTable(std::string_view sql);
// True when `sql` is a ROLLBACK statement (of a transaction or to a savepoint).
bool IsRollback(std::string_view sql);

}  // namespace internal

class StoreConnection {
 public:
  // Takes ownership of `db`, an open handle of the store at `path`.
  StoreConnection(sqlite3* db, std::string path);
  // A connection to the store at `path` whose file does not exist yet: reads fail, and the
  // first write creates the file when `may_create`.
  StoreConnection(std::string path, bool may_create);
  ~StoreConnection();
  StoreConnection(const StoreConnection&) = delete;
  StoreConnection& operator=(const StoreConnection&) = delete;

  // The SQLite handle; null until the file is open.
  sqlite3* db() const { return db_; }
  // The fork generation (internal::ForkGeneration) of the process that opened the handle.
  uint64_t fork_generation() const { return fork_generation_; }
  const std::string& path() const { return path_; }
  bool may_create() const { return may_create_; }
  // True when the file is open read-only (read-only media, or a file this process may
  // only read).
  bool read_only() const { return read_only_; }

  // Takes ownership of `db`, the handle of the file with identity `file`, for a connection
  // made without one.
  void Adopt(sqlite3* db, const struct stat& file, bool read_only);
  // True when `file` is the file this connection opened (device and inode).
  bool IsFile(const struct stat& file) const {
    return file.st_dev == device_ && file.st_ino == inode_;
  }
  // True when the path still names the file this connection opened. Looks at the file (a
  // stat()) only when the path's watch saw a change since the last look that found it.
  bool PathStillNamesFile();

  // Sets SQLite's busy time-out when it differs from the one in force.
  void UseBusyTimeout(int milliseconds);

  const std::shared_ptr<internal::StatementCache>& cache() const { return cache_; }

  // In a child forked outside every store operation: closes the inherited handle without
  // checkpoint (it holds no lock and no transaction), so that SQLite's per-process lock
  // bookkeeping of the file no longer counts it. Its statements are finalized first. The
  // connection then belongs to this process, with no handle: the next use opens one
  // (ReadyConnection), and the nesting and caches start afresh.
  void RetireInherited();
  internal::KeyValueCache& key_values() { return key_values_; }

  // Transaction nesting.
  int depth = 0;
  uint64_t transaction_serial = 0;  // raised by every outermost begin
  bool doomed = false;              // an inner level was cancelled: the outer commit rolls back
  // Rollbacks seen on this connection (explicit or by the engine after an error).
  uint64_t rollbacks = 0;
  // The outermost transaction holds the calling thread's share of the operation gate.
  bool gate_held = false;
  // The sidecar file of the writers' turnstile (-1 until opened), whether this connection
  // holds the write turn, and whether the file proved unusable.
  int write_turn_fd = -1;
  bool holds_write_turn = false;
  bool write_turn_unusable = false;
  // Nested attachments of the schema database.
  int schema_attachments = 0;
  // The last detach came inside a transaction that may have read "ss" (SQLite refuses that
  // detach): it happens when the transaction ends.
  bool schema_detach_pending = false;
  // Why the last open or check of the file failed: the path and the cause. Empty after
  // one that succeeded.
  std::string failure;
  // Work waiting for the outermost transaction to commit.
  internal::AfterCommitQueue after_commit;

 private:
  sqlite3* db_;
  std::string path_;
  uint64_t fork_generation_;
  bool may_create_ = false;
  bool read_only_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::unique_ptr<internal::PathWatch> watch_;  // of the path, from Adopt on
  uint64_t watch_checked_ = 0;                  // the watch's version when last looked at
  int busy_timeout_ms_ = -1;
  std::shared_ptr<internal::StatementCache> cache_;
  internal::KeyValueCache key_values_;
};

namespace internal {

// The statements of the key-value table.
extern const char kReadKeyValueSql[];
extern const char kWriteKeyValueSql[];

// Prepares (through the cache) and steps `sql`, which takes no parameters and whose rows
// are ignored, waiting at most `busy_timeout_ms` for locks. Returns the SQLite result code
// (SQLITE_OK when it ran to the end).
int RunSql(const std::shared_ptr<StoreConnection>& conn, std::string_view sql,
           int busy_timeout_ms = kBusyTimeoutMs);

// Logs a failed SQLite call: what failed, SQLite's extended code and message.
void LogSqliteError(sqlite3* db, int code, const char* what, std::string_view sql);

// The operation gate. Every call that reaches SQLite through a store connection runs inside
// it (a single statement, or a whole transaction or read snapshot), so that fork() can wait
// until no other thread is inside SQLite; see db_store_fork.cc. Entries nest per thread.
void EnterOperation();
void LeaveOperation();

// Holds the gate for one scope.
class OperationGate {
 public:
  OperationGate() { EnterOperation(); }
  ~OperationGate() { LeaveOperation(); }
  OperationGate(const OperationGate&) = delete;
  OperationGate& operator=(const OperationGate&) = delete;
};

// Raised in the child by every fork().
uint64_t ForkGeneration();

// True when `conn` may be used by this process. A connection inherited over fork() is
// retired here first when the fork happened outside every store operation (the next use
// opens a handle of this process); when it happened inside one, this process must not use the store
// at all: the refusal is logged and recorded as the thread's failure, and false is returned.
bool UsableHere(const std::shared_ptr<StoreConnection>& conn);

// False, after logging and recording the refusal, when this process was forked inside a
// store operation and so must not use the store at `path` (or any other).
bool ProcessMayUseStore(const std::string& path);

// Record the calling thread's latest failure (see TakeLastFailure): a SQLite result code, or
// the refusal of a process forked inside a store operation.
void RecordFailure(int code);
void RecordForkRefusal();

// Makes `mutex` be held across every fork() (locked after the gate is closed, released in
// parent and child), so that the child never inherits it locked by a thread it lacks.
void HoldAcrossFork(std::mutex* mutex);

// Waits, at most `timeout_ms`, for the writers' turn on `conn`'s store (see
// db_store_write_turn.cc). True when the turn is held or the turnstile cannot be used; false,
// with SQLITE_BUSY recorded, when the wait timed out.
bool TakeWriteTurn(StoreConnection& conn, int timeout_ms);
// Gives the turn back, when held.
void GiveWriteTurn(StoreConnection& conn);

// Adds and removes a connection from the process's list, used to retire inherited ones.
void RegisterConnection(StoreConnection* conn);
void UnregisterConnection(StoreConnection* conn);

// Runs the detach of the schema database that waited for the transaction to end.
void FinishDeferredDetach(const std::shared_ptr<StoreConnection>& conn);

// Creates the tables, trigger and key-value table of a new store in one transaction and
// marks the file as a store (application id and schema version). Returns SQLITE_OK or the
// failing code.
int CreateStoreSchema(const std::shared_ptr<StoreConnection>& conn);

// Checks that the open file is a store of this library: marked as one, or (made by an
// earlier version, before the mark) holding every table of a store with this schema
// version. Returns SQLITE_OK, a busy code to retry, or another code with `*why` set.
int CheckStoreSchema(sqlite3* db, std::string* why);

// Opens the store file of `conn` when it is not open yet: for reads only when it exists;
// for writes (`for_write`) also creating it when the connection may. Then, for both,
// checks that the path still names the file that was opened, and for writes that the
// file is writable. Returns true when the connection may go on; otherwise false with
// `conn->failure` set and logged.
bool ReadyConnection(const std::shared_ptr<StoreConnection>& conn, bool for_write);

// Opens the existing store file `path` and checks it. Returns the handle (owned by the
// caller) with `*file` and `*read_only` set, or null with `*why` set.
sqlite3* OpenStoreFile(const std::string& path, struct stat* file, bool* read_only,
                       std::string* why);

// Creates a new store at `path` (and its directory, owner-only) so that no process ever
// sees it half made: built under a temporary name, then linked into place. A store another
// process created meanwhile is kept. Returns true when `path` exists afterwards; otherwise
// false with `*why` set.
bool CreateStoreFile(const std::string& path, std::string* why);

// The application id that marks a file as a store of this library ("SVlt").
constexpr int kStoreApplicationId = 0x53566c74;

}  // namespace internal
}  // namespace DBStore

#endif  // SETVAULT_SRC_DBSTORE_DB_STORE_CONNECTION_H_
