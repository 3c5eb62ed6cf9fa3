// The store facade: creation, connection and transactions.
#include "store/setvault_impl.h"

#include <exception>

#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {

const std::string sGlobalNamespace;

Setvault::~Setvault() = default;

std::shared_ptr<DBStore::StoreConnection> GetDBStore(DBStore::Type type, bool mustConnect) {
  auto connection = DBStore::GetConnection(type, true);
  if (!connection && mustConnect) {
    DBStore::ThrowFailure("Failed to connect to database", DBStore::LastOpenFailure());
  }
  return connection;
}

std::shared_ptr<Setvault> Setvault::GetStore(const std::string& nameSpace) {
  if (nameSpace != sGlobalNamespace) {
    throw InvalidArgumentException(SV_ERR_GENERIC, "Invalid value for namespace.");
  }
  return std::make_shared<SetvaultImpl>(GetDBStore(DBStore::kConfigStore, true));
}

SetvaultImpl::SetvaultImpl(std::shared_ptr<DBStore::StoreConnection> connection)
    : connection_(std::move(connection)) {}

SetvaultImpl::~SetvaultImpl() = default;

int SetvaultImpl::BeginTransaction() { return DBStore::BeginTransaction(connection_); }

int SetvaultImpl::CommitTransaction() {
  if (DBStore::CommitTransaction(connection_) != 0) DBStore::ThrowFailure("Commit transaction failed.");
  return 0;
}

int SetvaultImpl::CancelTransaction() noexcept {
  const int result = DBStore::CancelTransaction(connection_);
  // Cancelling a nested level cannot undo only that level: it is a
  // programming error, and this operation may not throw, so the process ends.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wterminate"  // ending the process is the intent
  if (result == 1) throw SetvaultException(SV_ERR_GENERIC, "Failed to cancel nested transaction");
#pragma GCC diagnostic pop
  return result;
}

SetvaultTransaction::SetvaultTransaction(std::shared_ptr<Setvault>& store)
    : store_(store), active_(true), uncaught_(std::uncaught_exceptions()) {
  if (!store_) throw SetvaultException(SV_ERR_GENERIC, "Failed to use NULL as the store");
  if (store_->BeginTransaction() != 0) DBStore::ThrowFailure("Failed to start a transaction.");
}

SetvaultTransaction::~SetvaultTransaction() {
  if (!active_) return;
  // Unwinding from an exception, a nested level must not take the fatal cancel path: the
  // database layer dooms the enclosing transaction instead (its commit then fails and
  // writes nothing), and the exception goes on to the caller.
  auto* impl = dynamic_cast<SetvaultImpl*>(store_.get());
  if (impl != nullptr && std::uncaught_exceptions() > uncaught_ &&
      DBStore::InTransaction(impl->connection())) {
    DBStore::CancelTransaction(impl->connection());
    return;
  }
  store_->CancelTransaction();
}

int SetvaultTransaction::Commit() {
  const int result = store_->CommitTransaction();
  active_ = false;
  return result;
}

int SetvaultTransaction::Cancel() {
  active_ = false;
  return store_->CancelTransaction();
}

}  // namespace KorvoSetvault
