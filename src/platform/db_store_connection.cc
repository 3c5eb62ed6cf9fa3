// Opening connections: files and directory created owner-only, pragmas, per-thread cache.
#include "platform/db_store_connection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
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

// Creates `dir` and its missing parents, owner-only. Existing directories are left as they
// are. Returns 0 or an errno value.
int MakeDirectories(const std::string& dir) {
  if (dir.empty()) return 0;
  struct stat info;
  if (stat(dir.c_str(), &info) == 0) return S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
  size_t slash = dir.find_last_of('/');
  if (slash != std::string::npos && slash > 0) {
    int rc = MakeDirectories(dir.substr(0, slash));
    if (rc != 0) return rc;
  }
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return errno;
  return 0;
}

// Makes sure the store file exists, creating it (and its directory) owner-only when
// `create` allows. Returns false after logging when it does not and cannot exist.
bool PrepareStoreFile(const std::string& path, bool create) {
  struct stat info;
  if (stat(path.c_str(), &info) == 0) return true;
  if (!create) {
    SVLogger::Log(0, "Store database %s does not exist", path.c_str());
    return false;
  }
  size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0) {
    int rc = MakeDirectories(path.substr(0, slash));
    if (rc != 0) {
      SVLogger::Log(0, "Cannot create the directory of %s: %s", path.c_str(), strerror(rc));
      return false;
    }
  }
  // SQLite gives the -wal and -shm files the permissions of the database file.
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0 && errno != EEXIST) {
    SVLogger::Log(0, "Cannot create the store database %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  if (fd >= 0) close(fd);
  return true;
}

// Runs a statement that yields one text (a pragma) into `out`. Returns the SQLite code.
int QueryText(const std::shared_ptr<StoreConnection>& conn, std::string_view sql,
              std::string* out) {
  internal::OperationGate gate;
  StmtPtr stmt = internal::Prepare(conn, sql, kBusyTimeoutMs);
  if (!stmt) return SQLITE_ERROR;
  int rc = sqlite3_step(stmt.get());
  if (rc == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(stmt.get(), 0);
    out->assign(text != nullptr ? reinterpret_cast<const char*>(text) : "");
    return SQLITE_OK;
  }
  if (rc != SQLITE_DONE) internal::LogSqliteError(conn->db(), rc, "Statement", sql);
  return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

void CountRollback(void* conn) { ++static_cast<StoreConnection*>(conn)->rollbacks; }

bool ConfigureConnection(const std::shared_ptr<StoreConnection>& conn) {
  sqlite3* db = conn->db();
  sqlite3_extended_result_codes(db, 1);
  conn->UseBusyTimeout(kBusyTimeoutMs);
  sqlite3_rollback_hook(db, CountRollback, conn.get());
  std::string mode;
  if (QueryText(conn, "PRAGMA journal_mode=WAL", &mode) != SQLITE_OK) return false;
  if (mode != "wal") {
    SVLogger::Log(1, "Store database %s stays in journal mode %s", conn->path().c_str(),
                  mode.c_str());
  }
  if (internal::RunSql(conn, "PRAGMA synchronous=FULL") != SQLITE_OK) return false;
  return internal::EnsureStoreSchema(conn) == SQLITE_OK;
}

struct ThreadConnection {
  std::shared_ptr<StoreConnection> conn;
  uint64_t path_generation = 0;
};

thread_local ThreadConnection t_connection;

}  // namespace

std::shared_ptr<StoreConnection> OpenStoreConnection(const std::string& path, bool create) {
  if (path.empty()) {
    SVLogger::Log(0, "No store database path is set");
    return nullptr;
  }
  if (!internal::ProcessMayUseStore(path) || !PrepareStoreFile(path, create)) return nullptr;
  internal::OperationGate gate;
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    internal::LogSqliteError(db, rc, "Opening the store database", path);
    sqlite3_close_v2(db);
    return nullptr;
  }
  auto conn = std::make_shared<StoreConnection>(db, path);
  if (!ConfigureConnection(conn)) {
    SVLogger::Log(0, "Cannot set up the store database %s", path.c_str());
    return nullptr;
  }
  return conn;
}

std::shared_ptr<StoreConnection> GetConnection(Type type, bool create) {
  if (type != kConfigStore) {
    SVLogger::Log(0, "Unknown store connection type %d", type);
    return nullptr;
  }
  ThreadConnection& cached = t_connection;
  // A connection inherited over fork() gets a handle of its own, or is refused.
  if (cached.conn && !internal::UsableHere(cached.conn)) return nullptr;
  uint64_t path_generation = KorvoSetvault::GetStorePathGeneration();
  if (cached.conn && cached.path_generation == path_generation) return cached.conn;

  std::string path = KorvoSetvault::GetStorePath();
  if (!cached.conn || cached.conn->path() != path) {
    std::shared_ptr<StoreConnection> conn = OpenStoreConnection(path, create);
    if (!conn) return nullptr;
    cached.conn = std::move(conn);
  }
  cached.path_generation = path_generation;
  return cached.conn;
}

namespace internal {

bool ReopenHandle(const std::shared_ptr<StoreConnection>& conn) {
  OperationGate gate;
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(conn->path().c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                           nullptr);
  if (rc != SQLITE_OK) {
    LogSqliteError(db, rc, "Reopening the store database after fork", conn->path());
    sqlite3_close_v2(db);
    return false;
  }
  conn->Adopt(db);
  if (ConfigureConnection(conn)) return true;
  SVLogger::Log(0, "Cannot set up the store database %s", conn->path().c_str());
  return false;
}

}  // namespace internal

}  // namespace DBStore
