// Opening a store file: a new store appears whole, an existing file is used only when it
// is a store and other users cannot write it, and every step waits out a busy file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "dbstore/db_store_connection.h"
#include "platform/file_trust.h"
#include "setvault/logger.h"

namespace DBStore {
namespace internal {
namespace {

using KorvoSetvault::SVLogger;
using Clock = std::chrono::steady_clock;

bool IsBusy(int rc) { return (rc & 0xff) == SQLITE_BUSY || (rc & 0xff) == SQLITE_LOCKED; }

// Runs `step` again while it answers busy, until `deadline`: the same bounded wait as every
// other statement, for the steps that SQLite's busy handler does not cover (a journal mode
// change, the first read while another process recovers the log).
template <typename Step>
int RetryWhileBusy(Clock::time_point deadline, Step step) {
  int rc;
  for (int attempt = 1; IsBusy(rc = step()) && Clock::now() < deadline; ++attempt) {
    std::this_thread::sleep_for(std::chrono::milliseconds(attempt < 10 ? attempt : 10));
  }
  return rc;
}

// Runs a statement that yields one text (a pragma) into `out`. Returns the SQLite code.
int QueryText(sqlite3* db, const char* sql, std::string* out) {
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr);
  if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
  if (rc == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(stmt, 0);
    out->assign(text != nullptr ? reinterpret_cast<const char*>(text) : "");
    rc = SQLITE_OK;
  }
  sqlite3_finalize(stmt);
  return rc;
}

std::string Reason(sqlite3* db, int rc) {
  return std::string(sqlite3_errstr(rc)) + " (SQLite " + std::to_string(rc) +
         (db != nullptr ? std::string(": ") + sqlite3_errmsg(db) : std::string()) + ")";
}

// Sets up a freshly opened handle. The file must be a store (when `check`) before anything
// is changed; the journal mode is read first and set to WAL only when the file is not in
// WAL yet (a writable file only); full sync. Returns the SQLite code, `*why` set on failure.
int Configure(sqlite3* db, bool read_only, bool check, Clock::time_point deadline,
              std::string* why) {
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  std::string mode;
  int rc = RetryWhileBusy(deadline, [&] { return QueryText(db, "PRAGMA journal_mode", &mode); });
  if (rc == SQLITE_OK && check) {
    rc = RetryWhileBusy(deadline, [&] { return CheckStoreSchema(db, why); });
    if (rc != SQLITE_OK && !IsBusy(rc)) return rc;
  }
  if (rc == SQLITE_OK && mode != "wal" && !read_only) {
    rc = RetryWhileBusy(deadline, [&] { return QueryText(db, "PRAGMA journal_mode=WAL", &mode); });
    if (rc == SQLITE_OK && mode != "wal") {
      SVLogger::Log(1, "Store database stays in journal mode %s", mode.c_str());
    }
  }
  if (rc == SQLITE_OK) {
    rc = RetryWhileBusy(deadline, [&] {
      return sqlite3_exec(db, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr);
    });
  }
  if (rc != SQLITE_OK)
    *why = (IsBusy(rc) ? "stayed busy: " : "cannot be set up: ") + Reason(db, rc);
  return rc;
}

// The URI that opens `path` as immutable: read-only media, where no -shm file can be made
// and nobody can change the file.
std::string ImmutableUri(const std::string& path) {
  std::string uri = "file:";
  for (char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      static const char kHex[] = "0123456789ABCDEF";
      uri += '%';
      uri += kHex[(c >> 4) & 0xf];
      uri += kHex[c & 0xf];
    } else {
      uri += c;
    }
  }
  return uri + "?immutable=1";
}

// Opens and sets up `path` (or its immutable URI). Returns the handle or null with `*why`.
sqlite3* OpenHandle(const std::string& name, int flags, bool read_only, Clock::time_point deadline,
                    std::string* why, int* code) {
  sqlite3* db = nullptr;
  *code = sqlite3_open_v2(name.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (*code != SQLITE_OK) {
    *why = "cannot be opened: " + Reason(db, *code);
  } else if ((*code = Configure(db, read_only, true, deadline, why)) == SQLITE_OK) {
    return db;
  }
  sqlite3_close_v2(db);
  return nullptr;
}

// True when this process (its effective ids) may write `path`.
bool MayWrite(const std::string& path) {
  return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

// A store file every user could write, or an empty one, is not used.
bool CheckFile(const std::string& path, struct stat* info, std::string* why) {
  if (stat(path.c_str(), info) != 0) {
    *why = errno == ENOENT ? "does not exist: nothing has been written to this store yet "
                             "(reads never create it; the first write does)"
                           : std::string("cannot be examined: ") + std::strerror(errno);
    return false;
  }
  if (!S_ISREG(info->st_mode)) {
    *why = "is not a regular file";
    return false;
  }
  if (info->st_size == 0) {
    *why =
        "is empty (0 bytes): it holds no store, and it is not treated as a new one; "
        "restore it from a backup, or remove it to start an empty store";
    return false;
  }
  return KorvoSetvault::internal::CheckOthersCannotWrite(path, *info, why);
}

}  // namespace

sqlite3* OpenStoreFile(const std::string& path, struct stat* file, bool* read_only,
                       std::string* why) {
  if (!CheckFile(path, file, why)) return nullptr;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
  *read_only = !MayWrite(path);
  int code = SQLITE_OK;
  sqlite3* db = OpenHandle(path, *read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE,
                           *read_only, deadline, why, &code);
  if (db == nullptr && *read_only &&
      !MayWrite(KorvoSetvault::internal::ParentDirectory(path))) {
    // A WAL file on read-only media: no -shm can be made, and no one can write there.
    db = OpenHandle(ImmutableUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, true, deadline, why,
                    &code);
  }
  if (db == nullptr) return nullptr;
  struct stat after;
  if (stat(path.c_str(), &after) != 0 || after.st_dev != file->st_dev ||
      after.st_ino != file->st_ino) {
    *why = "was replaced while it was being opened";
    sqlite3_close_v2(db);
    return nullptr;
  }
  return db;
}

bool CreateStoreFile(const std::string& path, std::string* why) {
  int rc = KorvoSetvault::internal::MakePrivateDirectories(
      KorvoSetvault::internal::ParentDirectory(path));
  if (rc != 0) {
    *why = std::string("cannot get its directory: ") + std::strerror(rc);
    return false;
  }
  static std::atomic<unsigned> serial{0};
  const std::string building =
      path + ".new-" + std::to_string(getpid()) + "-" + std::to_string(serial.fetch_add(1));
  rc = KorvoSetvault::internal::CreatePrivateFile(building);
  if (rc != 0) {
    *why = "cannot be created (" + building + "): " + std::strerror(rc);
    return false;
  }
  sqlite3* db = nullptr;
  int code =
      sqlite3_open_v2(building.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
  if (code == SQLITE_OK) code = Configure(db, false, false, deadline, why);
  if (code == SQLITE_OK) {
    // Closing the last connection folds the log into the file and removes it.
    auto conn = std::make_shared<StoreConnection>(db, building);
    code = CreateStoreSchema(conn);
    if (code != SQLITE_OK) *why = "cannot be created: " + Reason(db, code);
  } else {
    if (why->empty()) *why = "cannot be created: " + Reason(db, code);
    sqlite3_close_v2(db);
  }
  // link() never replaces: a store another process made meanwhile stays.
  const bool placed =
      code == SQLITE_OK && (link(building.c_str(), path.c_str()) == 0 || errno == EEXIST);
  if (code == SQLITE_OK && !placed)
    *why = std::string("cannot be put in place: ") + strerror(errno);
  unlink(building.c_str());
  return placed;
}

bool ReadyConnection(const std::shared_ptr<StoreConnection>& conn, bool for_write) {
  OperationGate gate;  // opening runs statements: fork() waits for it like for any other
  std::string why;
  struct stat now;
  if (conn->db() == nullptr) {
    bool read_only = false;
    sqlite3* db = OpenStoreFile(conn->path(), &now, &read_only, &why);
    if (db == nullptr && for_write && conn->may_create() && stat(conn->path().c_str(), &now) != 0 &&
        errno == ENOENT && CreateStoreFile(conn->path(), &why)) {
      db = OpenStoreFile(conn->path(), &now, &read_only, &why);
    }
    if (db != nullptr) {
      conn->Adopt(db, now, read_only);
      why.clear();  // a first attempt found no file
    }
  } else if (!conn->PathStillNamesFile()) {
    why =
        "was removed or replaced while in use: refused, so that this process does not "
        "go on with a file other processes no longer see; open the store again";
  }
  if (why.empty() && for_write && conn->read_only()) {
    why = "is read-only for this process: reads work, writes are refused";
  }
  if (why.empty()) {
    conn->failure.clear();
    return true;
  }
  conn->failure = "Store database " + conn->path() + " " + why;
  SVLogger::Log(0, "%s", conn->failure.c_str());
  return false;
}

}  // namespace internal
}  // namespace DBStore
