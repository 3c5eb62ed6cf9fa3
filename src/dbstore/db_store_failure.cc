// The calling thread's latest database failure, and the exception that reports it.
#include <sqlite3.h>

#include "dbstore/db_store_connection.h"
#include "setvault/exceptions.h"

namespace DBStore {
namespace {

thread_local Failure t_failure;

bool IsBusy(int sqlite_code) {
  const int primary = sqlite_code & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

}  // namespace

namespace internal {

void RecordFailure(int code) { t_failure = Failure{code, false}; }

void RecordForkRefusal() { t_failure = Failure{0, true}; }

}  // namespace internal

Failure TakeLastFailure() {
  Failure failure = t_failure;
  t_failure = Failure();
  return failure;
}

void ThrowFailure(const std::string& message, const std::string& detail) {
  const Failure failure = TakeLastFailure();
  if (failure.forked) {
    throw KorvoSetvault::SetvaultException(
        KorvoSetvault::SV_ERR_GENERIC, message.c_str(),
        "this process was forked while a store transaction or operation was open; the "
        "transaction belongs to the parent, and this process cannot use the store");
  }
  if (IsBusy(failure.sqlite_code)) {
    throw KorvoSetvault::StoreBusyException(KorvoSetvault::SV_ERR_GENERIC, message.c_str(),
                                            failure.sqlite_code, detail);
  }
  throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC, message.c_str(), detail);
}

}  // namespace DBStore
