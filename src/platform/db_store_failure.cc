// The calling thread's latest database failure, and the exception that reports it.
#include <sqlite3.h>

#include "platform/db_store_connection.h"
#include "setvault/exceptions.h"

namespace DBStore {
namespace {

thread_local Failure t_failure;

// A SetvaultException whose detailed message names its cause.
class ExplainedFailure : public KorvoSetvault::SetvaultException {
 public:
  ExplainedFailure(const char* text, const char* cause)
      : SetvaultException(KorvoSetvault::SV_ERR_GENERIC, text) {
    pibMessage.Append("database", "%s", cause);
  }
};

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

void ThrowFailure(const char* message) {
  const Failure failure = TakeLastFailure();
  if (failure.forked) {
    throw ExplainedFailure(message,
                           "this process was forked while a store transaction or operation was "
                           "open; the transaction belongs to the parent, and this process cannot "
                           "use the store");
  }
  if (IsBusy(failure.sqlite_code)) {
    throw KorvoSetvault::StoreBusyException(KorvoSetvault::SV_ERR_GENERIC, message,
                                            failure.sqlite_code);
  }
  throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC, message);
}

}  // namespace DBStore
