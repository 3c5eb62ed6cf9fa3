// Running store operations as one all-or-nothing step.
//
// Outside a transaction an operation runs in a transaction of its own. Inside
// the caller's transaction it runs in a savepoint of it: a failure undoes the
// operation's own writes and leaves the caller's transaction open and usable,
// with the caller's earlier writes still in it.
#ifndef SETVAULT_SRC_STORE_TRANSACTION_SCOPE_H_
#define SETVAULT_SRC_STORE_TRANSACTION_SCOPE_H_

#include <exception>
#include <memory>
#include <string>

#include "dbstore/db_store.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {

// One operation's scope on a connection: its own transaction, or a savepoint
// (and one counted level) of the transaction the caller holds.
class OperationScope {
 public:
  // Opens the scope. Throws SetvaultException 2000 "Begin Transaction failed
  // for: <operation>" when it cannot (busy past the time-out, or the caller's
  // transaction is already lost).
  OperationScope(std::shared_ptr<DBStore::StoreConnection> connection, const char* operation);
  // Undoes the scope when neither Finish nor Undo ran.
  ~OperationScope();
  OperationScope(const OperationScope&) = delete;
  OperationScope& operator=(const OperationScope&) = delete;

  // Commits the scope's writes (into the caller's transaction when nested).
  // Throws SetvaultException 2000 "Commit transaction failed." when that
  // fails; the scope's writes are then undone.
  void Finish();
  // Undoes the scope's writes; a caller's transaction stays usable.
  void Undo() noexcept;
  // Leaves the scope open as it stands, for exceptions that are not the
  // library's to handle: the caller's cancel or commit ends it.
  void Abandon() noexcept { open_ = false; }

 private:
  std::shared_ptr<DBStore::StoreConnection> connection_;
  bool nested_;
  bool open_ = false;
};

// Runs `body()` as one step on `connection` (see the top of this file). A
// library exception undoes the step and is rethrown unchanged
// (ValidationException keeps its findings); any other std::exception undoes
// it and becomes SetvaultException 2000 "Operation failed: <what>";
// exceptions of other types pass without an undo. Throws as OperationScope
// when the step cannot begin or commit.
template <typename Body>
void RunUnderTransaction(const std::shared_ptr<DBStore::StoreConnection>& connection,
                         const char* operation, Body body) {
  OperationScope scope(connection, operation);
  try {
    body();
    scope.Finish();
  } catch (const SetvaultException&) {
    scope.Undo();
    throw;
  } catch (const std::exception& e) {
    scope.Undo();
    throw SetvaultException(SV_ERR_GENERIC, (std::string("Operation failed: ") + e.what()).c_str());
  } catch (...) {
    // Not the library's to handle: the scope stays as it is.
    scope.Abandon();
    throw;
  }
}

// RunUnderTransaction for one persistence operation taking (argument, schema,
// connection), reported as "ExecuteUnderTransaction".
template <typename T, typename Schema, typename Operation>
void ExecuteUnderTransaction(const std::shared_ptr<DBStore::StoreConnection>& connection,
                             const T& argument, const Schema& schema, Operation operation) {
  RunUnderTransaction(connection, "ExecuteUnderTransaction",
                      [&] { operation(argument, schema, connection); });
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_TRANSACTION_SCOPE_H_
