#include "store/transaction_scope.h"

#include <string>

#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

// The savepoint of a nested operation. Savepoints of the same name nest: each
// statement acts on the innermost one.
constexpr char kSavepointSql[] = "SAVEPOINT setvault_operation";
constexpr char kReleaseSql[] = "RELEASE SAVEPOINT setvault_operation";
constexpr char kRollBackToSql[] = "ROLLBACK TO SAVEPOINT setvault_operation";

// Runs one statement without parameters; true on success.
bool RunStatement(const std::shared_ptr<DBStore::StoreConnection>& connection, const char* sql) {
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(connection, sql, DBStore::kBusyTimeoutMs);
  return stmt &&
         DBStore::ExecuteStmt(connection, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) == 0;
}

}  // namespace

OperationScope::OperationScope(std::shared_ptr<DBStore::StoreConnection> connection,
                               const char* operation)
    : connection_(std::move(connection)), nested_(DBStore::InTransaction(connection_)) {
  DBStore::TakeLastFailure();  // a failure reported below is this operation\'s own
  // A nested scope still takes a counted level, so that a transaction that is
  // already lost refuses it as it refuses any begin.
  bool begun = DBStore::BeginTransaction(connection_) == 0;
  if (begun && nested_ && !RunStatement(connection_, kSavepointSql)) {
    DBStore::CommitTransaction(connection_);  // gives the counted level back
    begun = false;
  }
  if (!begun) {
    DBStore::ThrowFailure(std::string("Begin Transaction failed for: ") + operation,
                          DBStore::FailureOf(connection_));
  }
  open_ = true;
}

OperationScope::~OperationScope() { Undo(); }

void OperationScope::Finish() {
  if (nested_ && !RunStatement(connection_, kReleaseSql)) {
    Undo();
    DBStore::ThrowFailure("Commit transaction failed.");
  }
  if (DBStore::CommitTransaction(connection_) != 0) {
    // Nested, the level is given back and the caller's commit reports the loss;
    // outermost, whatever the failed commit left open is rolled back.
    if (!nested_) DBStore::CancelTransaction(connection_);
    open_ = false;
    DBStore::ThrowFailure("Commit transaction failed.");
  }
  open_ = false;
}

void OperationScope::Undo() noexcept {
  if (!open_) return;
  open_ = false;
  if (!nested_) {
    DBStore::CancelTransaction(connection_);
    return;
  }
  // Undo only this operation's writes; when the database has lost the whole
  // transaction instead, the caller's commit reports it.
  if (!RunStatement(connection_, kRollBackToSql) || !RunStatement(connection_, kReleaseSql)) {
    SVLogger::Log(0, "Undoing a failed operation inside the caller's transaction failed");
  }
  DBStore::CommitTransaction(connection_);  // gives the counted level back
}

}  // namespace KorvoSetvault
