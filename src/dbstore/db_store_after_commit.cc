#include "dbstore/db_store_after_commit.h"

#include <exception>

#include "dbstore/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {

void RunAfterCommit(const std::shared_ptr<StoreConnection>& conn, const std::string& key,
                    std::function<void()> action) {
  if (!conn) {
    internal::AfterCommitQueue now;
    now.Add(key, std::move(action));
    now.RunAll();
    return;
  }
  conn->after_commit.Add(key, std::move(action));
  if (!InTransaction(conn)) conn->after_commit.RunAll();
}

namespace internal {

void AfterCommitQueue::Add(const std::string& key, std::function<void()> action) {
  if (keys_.insert(key).second) actions_.push_back(std::move(action));
}

void AfterCommitQueue::RunAll() noexcept {
  // Taken out first: an action may use the connection, and even queue more work.
  std::vector<std::function<void()>> actions;
  actions.swap(actions_);
  keys_.clear();
  for (auto& action : actions) {
    try {
      action();
    } catch (const std::exception& e) {
      KorvoSetvault::SVLogger::Log(1, "Work after a commit failed: %s", e.what());
    } catch (...) {
      KorvoSetvault::SVLogger::Log(1, "Work after a commit failed");
    }
  }
}

void AfterCommitQueue::DropAll() noexcept {
  actions_.clear();
  keys_.clear();
}

void TransactionEnded(const std::shared_ptr<StoreConnection>& conn, bool committed) noexcept {
  if (committed) {
    conn->after_commit.RunAll();
  } else {
    conn->after_commit.DropAll();
  }
}

}  // namespace internal
}  // namespace DBStore
