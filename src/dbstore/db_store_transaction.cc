// Transactions counted per connection: only the outermost level talks to SQLite.
//
// A cancelled inner level cannot undo just its own part, so it dooms the whole transaction:
// the outer commit then rolls back and reports failure instead of committing what the inner
// level cancelled. The same happens when the engine has rolled the transaction back on its
// own (after an I/O error, for example): a lost write never reads as a commit.
#include <algorithm>
#include <chrono>
#include <utility>

#include "dbstore/db_store_after_commit.h"
#include "dbstore/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace {

using KorvoSetvault::SVLogger;

constexpr int kNoTransaction = 2;

// True when the connection is in the transaction this layer opened.
bool StillOpen(const std::shared_ptr<StoreConnection>& conn) {
  return conn->db() != nullptr && !sqlite3_get_autocommit(conn->db());
}

// Forgets the nesting of a transaction that has ended, gives back the writers' turn and
// the operation gate, then runs (`committed`) or drops the work that waited for the end.
void EndTransaction(const std::shared_ptr<StoreConnection>& conn, bool committed) {
  conn->depth = 0;
  conn->doomed = false;
  internal::FinishDeferredDetach(conn);
  internal::GiveWriteTurn(*conn);
  if (conn->gate_held) {
    conn->gate_held = false;
    internal::LeaveOperation();
  }
  internal::TransactionEnded(conn, committed);
}

// Rolls back whatever is open and forgets the nesting. Returns 0 or kNoTransaction.
int RollBackAll(const std::shared_ptr<StoreConnection>& conn) {
  int result = 0;
  if (StillOpen(conn) && internal::RunSql(conn, "ROLLBACK") != SQLITE_OK) result = kNoTransaction;
  EndTransaction(conn, false);
  return result;
}

}  // namespace

int BeginTransaction(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || !internal::UsableHere(conn)) return 1;
  if (conn->depth > 0) {
    if (conn->doomed || !StillOpen(conn)) {
      conn->doomed = true;
      SVLogger::Log(0, "Begin refused: the open transaction is already lost");
      return 1;
    }
    ++conn->depth;
    return 0;
  }
  if (!internal::ReadyConnection(conn, true)) return 1;
  // The whole transaction is one operation: fork() waits for it to end.
  // Writers take turns for the write lock, then SQLite's lock is taken in what is left of
  // the busy time-out.
  internal::EnterOperation();
  const auto start = std::chrono::steady_clock::now();
  if (!internal::TakeWriteTurn(*conn, kBusyTimeoutMs)) {
    internal::LeaveOperation();
    return 1;
  }
  const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::steady_clock::now() - start).count();
  const int remaining = std::max(1, kBusyTimeoutMs - static_cast<int>(waited));
  if (internal::RunSql(conn, "BEGIN IMMEDIATE", remaining) != SQLITE_OK) {
    internal::GiveWriteTurn(*conn);
    internal::LeaveOperation();
    return 1;
  }
  conn->gate_held = true;
  conn->depth = 1;
  conn->doomed = false;
  ++conn->transaction_serial;
  return 0;
}

int CommitTransaction(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || conn->depth == 0) {
    SVLogger::Log(0, "Commit without an open transaction");
    return kNoTransaction;
  }
  if (!internal::UsableHere(conn)) return 1;
  if (conn->depth > 1) {
    --conn->depth;
    return conn->doomed ? 1 : 0;
  }
  if (conn->doomed || !StillOpen(conn)) {
    SVLogger::Log(0,
                  "Commit refused: the transaction was cancelled at an inner level or "
                  "rolled back by the database; rolling back");
    RollBackAll(conn);
    return 1;
  }
  int rc = internal::RunSql(conn, "COMMIT");
  if (rc == SQLITE_OK) {
    EndTransaction(conn, true);
    return 0;
  }
  // A commit that failed but left the transaction open (busy readers, for example) stays
  // open so that the caller can cancel it; one the engine rolled back is gone.
  if (!StillOpen(conn)) EndTransaction(conn, false);
  return 1;
}

bool InTransaction(const std::shared_ptr<StoreConnection>& conn) { return conn && conn->depth > 0; }

int CancelTransaction(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || conn->depth == 0) {
    SVLogger::Log(1, "Cancel without an open transaction");
    return kNoTransaction;
  }
  // A transaction inherited over fork() is the parent's: nothing to cancel here.
  if (!internal::UsableHere(conn)) return kNoTransaction;
  if (conn->depth > 1) {
    --conn->depth;
    conn->doomed = true;
    return 1;
  }
  return RollBackAll(conn);
}

ReadSnapshot::ReadSnapshot(std::shared_ptr<StoreConnection> conn) : conn_(std::move(conn)) {
  if (!conn_) {
    status_ = 1;
    return;
  }
  if (!internal::UsableHere(conn_)) {
    status_ = 1;
    return;
  }
  if (conn_->depth > 0) return;
  internal::EnterOperation();
  if (!internal::ReadyConnection(conn_, false) ||
      internal::RunSql(conn_, "BEGIN DEFERRED") != SQLITE_OK) {
    internal::LeaveOperation();
    status_ = 1;
    return;
  }
  began_ = true;
}

ReadSnapshot::~ReadSnapshot() {
  if (!began_) return;
  // A read transaction has nothing to keep: ending it either way releases the snapshot.
  if (StillOpen(conn_) && internal::RunSql(conn_, "COMMIT") != SQLITE_OK) {
    internal::RunSql(conn_, "ROLLBACK");
  }
  internal::LeaveOperation();
}

}  // namespace DBStore
