// Connections: opened on first use, one per thread, and checked against the file at their path.
#include "dbstore/db_store_connection.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "setvault/host_setup.h"
#include "setvault/logger.h"

namespace DBStore {

using KorvoSetvault::SVLogger;

StoreConnection::StoreConnection(sqlite3* db, std::string path)
    : db_(db),
      path_(std::move(path)),
      fork_generation_(internal::ForkGeneration()),
      cache_(std::make_shared<internal::StatementCache>()) {
  internal::RegisterConnection(this);
}

StoreConnection::StoreConnection(std::string path, bool may_create)
    : db_(nullptr),
      path_(std::move(path)),
      fork_generation_(internal::ForkGeneration()),
      may_create_(may_create),
      cache_(std::make_shared<internal::StatementCache>()) {
  internal::RegisterConnection(this);
}

namespace {
void CountRollback(void* conn) { ++static_cast<StoreConnection*>(conn)->rollbacks; }
}  // namespace

void StoreConnection::Adopt(sqlite3* db, const struct stat& file, bool read_only) {
  db_ = db;
  device_ = file.st_dev;
  inode_ = file.st_ino;
  read_only_ = read_only;
  busy_timeout_ms_ = kBusyTimeoutMs;  // set while opening
  sqlite3_rollback_hook(db_, CountRollback, this);
  // The watch starts after the file was looked at: its first version differs from
  // watch_checked_, so the next check looks again and misses no replacement in between.
  watch_ = std::make_unique<internal::PathWatch>(path_, internal::PathWatch::kEntry);
  watch_checked_ = 0;
}

bool StoreConnection::PathStillNamesFile() {
  const uint64_t version = watch_ ? watch_->Version() : 0;
  if (version != 0 && version == watch_checked_) return true;
  struct stat info;
  if (stat(path_.c_str(), &info) != 0 || !IsFile(info)) return false;
  watch_checked_ = version;
  return true;
}

StoreConnection::~StoreConnection() {
  // An inherited handle is retired (when safe) before it is forgotten; one that may hold the
  // parent's transaction is never touched.
  internal::UnregisterConnection(this);
  if (db_ == nullptr || fork_generation_ != internal::ForkGeneration()) return;
  if (gate_held) internal::LeaveOperation();
  if (write_turn_fd >= 0) close(write_turn_fd);  // releases the turn, when held
  sqlite3_rollback_hook(db_, nullptr, nullptr);
  // Idle statements are finalized here; statements still owned elsewhere find the cache
  // gone and finalize themselves, and close_v2 completes once the last one is finalized.
  cache_.reset();
  sqlite3_close_v2(db_);
}

void StoreConnection::UseBusyTimeout(int milliseconds) {
  if (milliseconds == busy_timeout_ms_) return;
  sqlite3_busy_timeout(db_, milliseconds);
  busy_timeout_ms_ = milliseconds;
}

sqlite3* GetSqliteHandle(const StoreConnection& conn) { return conn.db(); }

namespace internal {

void LogSqliteError(sqlite3* db, int code, const char* what, std::string_view sql) {
  RecordFailure(code);
  const char* message = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(code);
  SVLogger::Log(0, "%s failed: SQLite error %d (%s): %s [%.*s]", what, code, sqlite3_errstr(code),
                message, static_cast<int>(sql.size()), sql.data());
}

int RunSql(const std::shared_ptr<StoreConnection>& conn, std::string_view sql,
           int busy_timeout_ms) {
  OperationGate gate;
  StmtPtr stmt = Prepare(conn, sql, busy_timeout_ms);
  conn->UseBusyTimeout(busy_timeout_ms);
  if (!stmt)
    return sqlite3_errcode(conn->db()) != SQLITE_OK ? sqlite3_errcode(conn->db()) : SQLITE_ERROR;
  int rc;
  while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) {
  }
  if (rc == SQLITE_DONE) return SQLITE_OK;
  LogSqliteError(conn->db(), rc, "Statement", sql);
  return rc;
}

}  // namespace internal

namespace {

// Why the calling thread's last open failed.
thread_local std::string t_open_failure;

struct ThreadConnection {
  std::shared_ptr<StoreConnection> conn;
  uint64_t path_generation = 0;
};

thread_local ThreadConnection t_connection;

}  // namespace

std::shared_ptr<StoreConnection> OpenStoreConnection(const std::string& path, bool create) {
  t_open_failure.clear();
  if (path.empty()) {
    t_open_failure = "No store database path is set";
    SVLogger::Log(0, "%s", t_open_failure.c_str());
    return nullptr;
  }
  if (!internal::ProcessMayUseStore(path)) {
    t_open_failure = "Store database " + path + ": this process was forked inside a store operation";
    return nullptr;
  }
  struct stat info;
  const bool missing = stat(path.c_str(), &info) != 0 && errno == ENOENT;
  auto conn = std::make_shared<StoreConnection>(path, create);
  // A missing store is created by its first write, never by opening or reading.
  if (missing && create) return conn;
  if (!internal::ReadyConnection(conn, false)) {
    t_open_failure = conn->failure;
    return nullptr;
  }
  return conn;
}

int CheckStore(const std::shared_ptr<StoreConnection>& conn, bool for_write) {
  if (!conn) return 1;
  if (conn->db() != nullptr && conn->depth > 0 && !for_write) return 0;
  return internal::ReadyConnection(conn, for_write) ? 0 : 1;
}

std::string FailureOf(const std::shared_ptr<StoreConnection>& conn) {
  return conn ? conn->failure : std::string();
}

std::string LastOpenFailure() { return t_open_failure; }

namespace {

// False when the path no longer names the file `conn` opened. A connection inside its open
// transaction stays current until the transaction ends: its file was checked when the
// transaction began, and the thread's reads beside the transaction's writes (host flags)
// must see the transaction's own snapshot.
bool StillCurrent(StoreConnection& conn) {
  if (conn.db() == nullptr) return true;
  if (conn.depth > 0 && !sqlite3_get_autocommit(conn.db())) return true;
  return conn.PathStillNamesFile();
}

}  // namespace

std::shared_ptr<StoreConnection> GetConnection(Type type, bool create) {
  if (type != kConfigStore) {
    SVLogger::Log(0, "Unknown store connection type %d", type);
    return nullptr;
  }
  ThreadConnection& cached = t_connection;
  // A connection inherited over fork() gets a handle of its own, or is refused.
  if (cached.conn && !internal::UsableHere(cached.conn)) return nullptr;
  uint64_t path_generation = KorvoSetvault::GetStorePathGeneration();
  if (cached.conn && cached.path_generation == path_generation && StillCurrent(*cached.conn)) {
    return cached.conn;
  }

  std::string path = KorvoSetvault::GetStorePath();
  if (!cached.conn || cached.conn->path() != path || !StillCurrent(*cached.conn)) {
    // Handles holding a connection to a replaced file keep it, and are refused.
    std::shared_ptr<StoreConnection> conn = OpenStoreConnection(path, create);
    if (!conn) return nullptr;
    cached.conn = std::move(conn);
  }
  cached.path_generation = path_generation;
  return cached.conn;
}

}  // namespace DBStore
