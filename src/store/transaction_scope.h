// Running store operations inside their own transaction.
#ifndef SETVAULT_SRC_STORE_TRANSACTION_SCOPE_H_
#define SETVAULT_SRC_STORE_TRANSACTION_SCOPE_H_

#include <exception>
#include <string>

#include "platform/db_store.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {

// Runs `body()` in a transaction on `connection` (nested in the caller's, if
// one is open): commits when it returns. A library exception cancels and is
// rethrown unchanged (ValidationException keeps its findings); any other
// std::exception cancels and becomes SetvaultException 2000 "Operation
// failed: <what>". Throws 2000 "Begin Transaction failed for: <operation>"
// when begin fails and "Commit transaction failed." when commit fails.
template <typename Body>
void RunUnderTransaction(const std::shared_ptr<DBStore::StoreConnection>& connection,
                         const char* operation, Body body) {
  if (DBStore::BeginTransaction(connection) != 0) {
    throw SetvaultException(SV_ERR_GENERIC,
                            (std::string("Begin Transaction failed for: ") + operation).c_str());
  }
  try {
    body();
    if (DBStore::CommitTransaction(connection) != 0) {
      throw SetvaultException(SV_ERR_GENERIC, "Commit transaction failed.");
    }
  } catch (const SetvaultException&) {
    DBStore::CancelTransaction(connection);
    throw;
  } catch (const std::exception& e) {
    DBStore::CancelTransaction(connection);
    throw SetvaultException(SV_ERR_GENERIC, (std::string("Operation failed: ") + e.what()).c_str());
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
