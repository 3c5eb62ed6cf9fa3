// DBStore: the database layer below the persistence code.
//
// One SQLite file per store. Each thread gets its own connection to the configured store
// (GetConnection), shared by every store handle of that thread and never by two threads.
// Statements are prepared from SQL text through a per-connection cache, bound in parameter
// order with a running index and stepped with a SQLite-form row callback:
//
//   auto conn = DBStore::GetConnection(0, true);
//   auto stmt = DBStore::internal::Prepare(conn, "SELECT Value FROM KeyValue WHERE Key = ?1",
//                                          DBStore::kBusyTimeoutMs);
//   int index = 1;
//   DBStore::internal::Bind(conn, stmt, index, key, false);
//   DBStore::ExecuteStmt(conn, stmt, callback, &row, DBStore::kBusyTimeoutMs);
//
// Every status is 0 on success. ExecuteStmt answers 1 for every failure; the transaction
// calls document their own numbers. Failures are logged with SQLite's code and message.
#ifndef SETVAULT_SRC_DBSTORE_DB_STORE_H_
#define SETVAULT_SRC_DBSTORE_DB_STORE_H_

#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace DBStore {

// Which database a connection reaches. Only kConfigStore (0) exists.
using Type = int;
constexpr Type kConfigStore = 0;

// The busy time-out, in milliseconds, that every caller passes to Prepare and ExecuteStmt.
constexpr int kBusyTimeoutMs = 3000;

// The schema version recorded in PRAGMA user_version of a store this layer created.
constexpr int kStoreSchemaVersion = 1;

// An open connection with its transaction depth and statement cache. Defined in
// dbstore/db_store_connection.h; holders outside the layer only pass it around.
class StoreConnection;

namespace internal {
class StatementCache;
struct CachedText;
}  // namespace internal

// Owner policy of a prepared statement: gives the statement back to its connection's cache
// (reset, bindings cleared) while that connection lives, and finalizes it otherwise.
struct SqliteStmtDeleter {
  std::weak_ptr<internal::StatementCache> cache;
  internal::CachedText* text = nullptr;  // the cache entry of the statement's SQL, if any
  void operator()(sqlite3_stmt* stmt) const noexcept;
};

// An owned prepared statement; empty when preparation failed.
using StmtPtr = std::unique_ptr<sqlite3_stmt, SqliteStmtDeleter>;

// Text that may be absent; an absent value binds SQL NULL.
using NullableSV = std::optional<std::string_view>;

// The SQLite-form row callback: context, column count, column texts (null entry for SQL
// NULL) and column names. Returns 0 to continue; any other value aborts the statement.
using RowCallback = int (*)(void* context, int count, char** texts, char** names);

// The calling thread's connection to the configured store (KorvoSetvault::GetStorePath()),
// reopened when the configured path changes or no longer names the file it opened. `type`
// must be kConfigStore. An existing file is opened at once and must be a store (see
// OpenStoreConnection). A missing file is not created here: with `create` the connection
// comes back unopened, reads through it fail naming the path, and its first write creates
// the store (owner-only, whole: a new store never appears half made). Returns an empty
// pointer, after logging why (LastOpenFailure()), when the store cannot be used.
std::shared_ptr<StoreConnection> GetConnection(Type type, bool create);

// Opens a new connection to the store at `path`, not cached and not shared with the
// thread's connection (tools, tests and benchmarks), as GetConnection does. Refused, with an
// empty pointer: an empty (0-byte) file, a file that is not a store of this library (another
// SQLite database is never modified), a store of a newer schema version, a file every user
// can write, a file that stays busy past kBusyTimeoutMs. A file this process may only read
// opens read-only: reads work, writes fail.
std::shared_ptr<StoreConnection> OpenStoreConnection(const std::string& path, bool create);

// Opens the file of `conn` when that has not happened yet (creating it for a write when the
// connection may), and checks that its path still names the file that was opened: a store
// whose file was removed or replaced while in use is refused rather than split in two. A
// write (`for_write`) also needs a writable file. Costs one stat() once open. Returns 0, or
// 1 with FailureOf(conn) telling why.
int CheckStore(const std::shared_ptr<StoreConnection>& conn, bool for_write);

// Why the last open or check of `conn` failed: the store's path and the cause. Empty when
// it did not fail.
std::string FailureOf(const std::shared_ptr<StoreConnection>& conn);

// Why the calling thread's last GetConnection or OpenStoreConnection came back empty.
std::string LastOpenFailure();

// The SQLite handle of `conn`, for code that runs SQL by hand (tests, benchmarks). The
// connection keeps ownership.
sqlite3* GetSqliteHandle(const StoreConnection& conn);

// Transactions are counted per connection. The outermost BeginTransaction waits for the
// writers' turn (db_store_write_turn.cc) and runs BEGIN IMMEDIATE, both within the busy
// time-out; inner levels only count. An open transaction holds its thread's share of the
// operation gate that fork() waits on (db_store_fork.cc). Each returns 0 on success.
//
// BeginTransaction: 1 when the store cannot be written (CheckStore), when the turn or BEGIN
//   IMMEDIATE cannot be had (busy past the time-out, I/O), when the open transaction is
//   doomed by a cancelled inner level, or when the process was forked inside a store
//   operation.
// CommitTransaction: at an inner level only counts down (1 when the transaction is doomed);
//   at the outermost level commits, or, when an inner level was cancelled or the engine
//   rolled the transaction back, rolls back and returns 1. 2 when no transaction is open.
// CancelTransaction: at the outermost level rolls back and returns 0. At an inner level it
//   counts down, dooms the transaction so that the outer commit rolls back, and returns 1.
//   2 when no transaction is open or the rollback failed.
int BeginTransaction(const std::shared_ptr<StoreConnection>& conn);
// True while a transaction begun through this layer is open on `conn`.
bool InTransaction(const std::shared_ptr<StoreConnection>& conn);
int CommitTransaction(const std::shared_ptr<StoreConnection>& conn);
int CancelTransaction(const std::shared_ptr<StoreConnection>& conn);

// Keeps the reads of its scope on one snapshot of the store. Outside a transaction it opens
// a read transaction (BEGIN DEFERRED: in WAL mode other connections go on writing, and
// their commits are not seen until it ends) and ends it when destroyed; inside a
// transaction begun through this layer it does nothing, that transaction being one
// snapshot already. No write may run in its scope outside a transaction.
class ReadSnapshot {
 public:
  explicit ReadSnapshot(std::shared_ptr<StoreConnection> conn);
  ~ReadSnapshot();
  ReadSnapshot(const ReadSnapshot&) = delete;
  ReadSnapshot& operator=(const ReadSnapshot&) = delete;

  // 0 when the reads are on one snapshot, 1 when the read transaction could not begin.
  int status() const { return status_; }

 private:
  std::shared_ptr<StoreConnection> conn_;
  bool began_ = false;
  int status_ = 0;
};

// Steps `stmt` to the end, calling `callback` (may be null) with `context` for each row.
// `busy_timeout_ms` bounds the wait for a lock held by another connection. Returns 0 when
// every row was delivered, 1 on every failure (busy, constraint, I/O, corruption, callback
// abort, empty statement). The statement is left reset.
int ExecuteStmt(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt,
                RowCallback callback, void* context, int busy_timeout_ms);

// Why the calling thread's latest failed database call failed.
struct Failure {
  int sqlite_code = 0;  // SQLite's extended result code, 0 when none was recorded
  bool forked = false;  // refused: the process was forked inside a store operation
};

// The failure recorded last on the calling thread, forgotten by the call.
Failure TakeLastFailure();

// Throws the exception for a failed database operation, with `message` as its text and code
// 2000: StoreBusyException when the thread's last failure was SQLITE_BUSY or SQLITE_LOCKED,
// otherwise SetvaultException. `detail` (the path and reason, e.g. FailureOf(conn)) becomes
// the cause in the detailed message; a process forked inside a store operation gets that
// as its cause instead. Consumes the recorded failure.
[[noreturn]] void ThrowFailure(const std::string& message, const std::string& detail = {});

// The mark of what a cache of data read through one connection is valid for.
struct StoreStamp {
  bool valid = false;
  int64_t data_version = -1;   // other connections' commits (the pager's: also its own)
  int64_t total_changes = -1;  // rows changed by this connection
  uint64_t rollbacks = 0;      // rollbacks seen by this connection
  uint64_t transaction = 0;    // the transaction it was last checked in, 0 for none
};

// Brings `stamp` up to date with what `conn` reads now (inside a transaction: its
// snapshot). Returns 0 when nothing read through `conn` can have changed since `stamp` was
// last brought up to date (data cached under it stays valid), 1 when it may have (the
// caller drops what it cached), -1 when the data version cannot be read (`stamp` is then
// invalid, and the next call returns 1 at best). Its data version is the connection's
// pager's, which also moves with the connection's own commits.
int RefreshStoreStamp(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp);

// As RefreshStoreStamp, but without running a statement: stamps the snapshot of the read
// transaction `conn` last began. Call it right after a statement that read in a
// transaction of its own (outside any transaction), before any other statement runs, to
// stamp exactly what that statement read. Same results; for the same `stamp` as
// RefreshStoreStamp (both use the pager's data version).
int StampLastRead(const std::shared_ptr<StoreConnection>& conn, StoreStamp* stamp);

// Reads the text stored under `key` into `out` (empty when the key is absent). Host flags
// are read on hot paths: values are cached per connection and re-read only after the
// database changed (another connection's commit, a write or rollback on this one). A store
// file that does not exist yet holds no key: every key reads as absent, and the file is not
// created. Returns 0 on success, 1 on failure (out is then empty).
int ReadKeyValue(const std::string& key, std::string* out,
                 const std::shared_ptr<StoreConnection>& conn);

// Stores `value` under `key`, replacing an earlier value. Returns 0 on success, 1 otherwise.
int WriteKeyValue(const std::string& key, const std::string& value,
                  const std::shared_ptr<StoreConnection>& conn);

// Attaches the schema database (KorvoSetvault::GetSchemaStorePath(), read-only) as "ss".
// Attachments nest: each attach needs one detach. Returns 0 on success, 1 when the file is
// missing or cannot be attached.
int AttachSchemaStore(const std::shared_ptr<StoreConnection>& conn);
// Undoes one AttachSchemaStore; the last one detaches, or, inside a transaction (where SQLite
// refuses to detach a database the transaction read), detaches when the transaction ends.
// Returns 0 on success, 1 when nothing is attached or the detach fails.
int DetachSchemaStore(const std::shared_ptr<StoreConnection>& conn);

namespace internal {

// A prepared statement for the single statement `sql` (trailing blanks and semicolons are
// allowed, a second statement is not), served from the connection's cache when an idle one
// with the same text exists. Returns an empty pointer, after logging, on failure.
StmtPtr Prepare(const std::shared_ptr<StoreConnection>& conn, std::string_view sql,
                int busy_timeout_ms);

// Binds one parameter at `index` and advances `index`; each returns 0 on success and 1 on
// failure (the index is then not advanced).
// Text: `copy` false binds the text in place, so it must outlive the statement's execution;
// true lets SQLite keep its own copy.
int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index,
         std::string_view text, bool copy);
// Optional text: SQL NULL when absent, otherwise bound in place like the text form.
int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index,
         NullableSV text);
// Integer.
int Bind(const std::shared_ptr<StoreConnection>& conn, const StmtPtr& stmt, int& index, int value);

}  // namespace internal

// The SQL text of one statement with text parameters `Args` (each convertible to
// std::string_view), bound in order. Holds a view of a text that outlives it (a literal).
//
//   constexpr DBStore::SqlStatement<std::string_view, std::string_view> kByName(
//       "SELECT Identifier FROM Config WHERE Name = ? AND ConfigGroup = ?");
//   auto stmt = kByName.PrepareAndBind(conn, name, group);
template <typename... Args>
class SqlStatement {
 public:
  constexpr explicit SqlStatement(std::string_view sql) : sql_(sql) {}

  std::string_view sql() const { return sql_; }

  // Prepares the text and binds every argument in order as text in place. Returns an empty
  // statement when preparation or any bind fails. The arguments must outlive execution.
  StmtPtr PrepareAndBind(const std::shared_ptr<StoreConnection>& conn, const Args&... args) const {
    StmtPtr stmt = internal::Prepare(conn, sql_, kBusyTimeoutMs);
    if (!stmt) return stmt;
    int index = 1;
    bool bound = (... && (internal::Bind(conn, stmt, index, std::string_view(args), false) == 0));
    if (!bound) stmt.reset();
    return stmt;
  }

 private:
  std::string_view sql_;
};

}  // namespace DBStore

#endif  // SETVAULT_SRC_DBSTORE_DB_STORE_H_
