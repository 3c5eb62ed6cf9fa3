// Transactions counted per connection: only the outermost level talks to SQLite.
//
// A cancelled inner level cannot undo just its own part, so it dooms the whole transaction:
// the outer commit then rolls back and reports failure instead of committing what the inner
// level cancelled. The same happens when the engine has rolled the transaction back on its
// own (after an I/O error, for example): a lost write never reads as a commit.
#include <utility>

#include "platform/db_store_after_commit.h"
#include "platform/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace {

using KorvoSetvault::SVLogger;

constexpr int kNoTransaction = 2;

// True when the connection is in the transaction this layer opened.
bool StillOpen(const std::shared_ptr<StoreConnection>& conn) {
  return !sqlite3_get_autocommit(conn->db());
}

// Rolls back whatever is open and forgets the nesting. Returns 0 or kNoTransaction.
int RollBackAll(const std::shared_ptr<StoreConnection>& conn) {
  conn->depth = 0;
  conn->doomed = false;
  int result = 0;
  if (StillOpen(conn) && internal::RunSql(conn, "ROLLBACK") != SQLITE_OK) result = kNoTransaction;
  internal::FinishDeferredDetach(conn);
  internal::TransactionEnded(conn, false);
  return result;
}

}  // namespace

int BeginTransaction(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn) return 1;
  if (conn->depth > 0) {
    if (conn->doomed || !StillOpen(conn)) {
      conn->doomed = true;
      SVLogger::Log(0, "Begin refused: the open transaction is already lost");
      return 1;
    }
    ++conn->depth;
    return 0;
  }
  if (internal::RunSql(conn, "BEGIN IMMEDIATE") != SQLITE_OK) return 1;
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
    conn->depth = 0;
    internal::FinishDeferredDetach(conn);
    internal::TransactionEnded(conn, true);
    return 0;
  }
  // A commit that failed but left the transaction open (busy readers, for example) stays
  // open so that the caller can cancel it; one the engine rolled back is gone.
  if (!StillOpen(conn)) {
    conn->depth = 0;
    internal::FinishDeferredDetach(conn);
    internal::TransactionEnded(conn, false);
  }
  return 1;
}

bool InTransaction(const std::shared_ptr<StoreConnection>& conn) { return conn && conn->depth > 0; }

int CancelTransaction(const std::shared_ptr<StoreConnection>& conn) {
  if (!conn || conn->depth == 0) {
    SVLogger::Log(1, "Cancel without an open transaction");
    return kNoTransaction;
  }
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
  if (conn_->depth > 0) return;
  if (internal::RunSql(conn_, "BEGIN DEFERRED") != SQLITE_OK) {
    status_ = 1;
    return;
  }
  began_ = true;
}

ReadSnapshot::~ReadSnapshot() {
  if (!began_ || !StillOpen(conn_)) return;
  // A read transaction has nothing to keep: ending it either way releases the snapshot.
  if (internal::RunSql(conn_, "COMMIT") != SQLITE_OK) internal::RunSql(conn_, "ROLLBACK");
}

}  // namespace DBStore
