// Work that must wait until a connection's outermost transaction has committed (telling
// other processes about a change, for example): queued per connection, run after the
// commit, dropped when the transaction rolls back instead.
#ifndef SETVAULT_SRC_DBSTORE_DB_STORE_AFTER_COMMIT_H_
#define SETVAULT_SRC_DBSTORE_DB_STORE_AFTER_COMMIT_H_

#include <functional>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace DBStore {

class StoreConnection;

// Runs `action` once the outermost transaction open on `conn` has committed, or at once
// when no transaction is open. Actions queued under the same `key` during one transaction
// run once (the first one queued). When the transaction rolls back (cancelled, doomed by an
// inner level, lost by the engine, a failed commit) its actions are dropped unrun. Actions
// run on the committing thread, in the order queued; an exception from one is logged and
// the others still run, so a committed transaction is never reported as failed.
void RunAfterCommit(const std::shared_ptr<StoreConnection>& conn, const std::string& key,
                    std::function<void()> action);

namespace internal {

// The queue a connection owns. Not thread-safe: a connection is used by one thread.
class AfterCommitQueue {
 public:
  // Queues `action` unless an action under `key` is already queued.
  void Add(const std::string& key, std::function<void()> action);
  // Runs and forgets every queued action. Never throws.
  void RunAll() noexcept;
  // Forgets every queued action without running it.
  void DropAll() noexcept;

 private:
  std::vector<std::function<void()>> actions_;
  std::unordered_set<std::string> keys_;
};

// Called by the transaction layer whenever the outermost transaction of `conn` has ended:
// runs its queued actions when it committed, drops them otherwise.
void TransactionEnded(const std::shared_ptr<StoreConnection>& conn, bool committed) noexcept;

}  // namespace internal
}  // namespace DBStore

#endif  // SETVAULT_SRC_DBSTORE_DB_STORE_AFTER_COMMIT_H_
