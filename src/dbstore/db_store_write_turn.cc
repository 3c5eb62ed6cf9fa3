// Taking turns for the write lock.
//
// SQLite's busy handler waits for a lock by sleeping and retrying, with sleeps that grow to
// 100 ms: a process that writes back to back takes the lock again long before a sleeping
// waiter looks, and waiters time out. Writers of a store therefore queue on a turnstile of
// two byte locks in a sidecar file ("<store>-lock") before they begin:
//
//   take the entry lock, take the write lock, release the entry lock,
//   ... BEGIN IMMEDIATE ... COMMIT or ROLLBACK, release the write lock.
//
// A writer that finishes and comes straight back finds the entry lock held by the writer
// waiting for the write lock, and must queue behind it: the lock passes between writers
// instead of staying with the fastest one. The locks are open-file-description locks, so the
// threads of one process (one connection each) queue like processes do, and the kernel
// releases them when a process dies, however it dies. The wait is bounded by the busy
// time-out, like SQLite's; when the sidecar file cannot be used (a read-only directory, for
// example) writers fall back to SQLite's own waiting.
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "dbstore/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace internal {
namespace {

constexpr off_t kEntryByte = 0;
constexpr off_t kWriteByte = 1;
constexpr long kPollNanoseconds = 250 * 1000;

enum class LockResult { kTaken, kBusy, kUnsupported };

LockResult TryLock(int fd, off_t byte, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return LockResult::kTaken;
  return errno == EAGAIN || errno == EACCES ? LockResult::kBusy : LockResult::kUnsupported;
}

// Waits for the byte lock until `deadline`.
LockResult Lock(int fd, off_t byte, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    LockResult result = TryLock(fd, byte, F_WRLCK);
    if (result != LockResult::kBusy || std::chrono::steady_clock::now() >= deadline) return result;
    struct timespec pause = {0, kPollNanoseconds};
    nanosleep(&pause, nullptr);
  }
}

void Unlock(int fd, off_t byte) { TryLock(fd, byte, F_UNLCK); }

// The sidecar file of `conn`, opened on first use; -1 when it cannot be used.
int TurnFile(StoreConnection& conn) {
  if (conn.write_turn_fd >= 0 || conn.write_turn_unusable) return conn.write_turn_fd;
  const std::string path = conn.path() + "-lock";
  conn.write_turn_fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (conn.write_turn_fd < 0) {
    conn.write_turn_unusable = true;
    KorvoSetvault::SVLogger::Log(1, "Writers of %s wait without taking turns: %s: %s",
                                 conn.path().c_str(), path.c_str(), strerror(errno));
  }
  return conn.write_turn_fd;
}

}  // namespace

bool TakeWriteTurn(StoreConnection& conn, int timeout_ms) {
  const int fd = TurnFile(conn);
  if (fd < 0) return true;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  LockResult entry = Lock(fd, kEntryByte, deadline);
  if (entry == LockResult::kTaken) {
    LockResult write = Lock(fd, kWriteByte, deadline);
    Unlock(fd, kEntryByte);
    if (write == LockResult::kTaken) {
      conn.holds_write_turn = true;
      return true;
    }
    entry = write;
  }
  if (entry == LockResult::kUnsupported) {
    conn.write_turn_unusable = true;
    close(conn.write_turn_fd);
    conn.write_turn_fd = -1;
    return true;
  }
  KorvoSetvault::SVLogger::Log(0, "Waiting for the write turn of %s timed out after %d ms",
                               conn.path().c_str(), timeout_ms);
  RecordFailure(SQLITE_BUSY);
  return false;
}

void GiveWriteTurn(StoreConnection& conn) {
  if (!conn.holds_write_turn) return;
  conn.holds_write_turn = false;
  Unlock(conn.write_turn_fd, kWriteByte);
}

}  // namespace internal
}  // namespace DBStore
