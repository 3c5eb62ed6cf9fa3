// Keeping SQLite sound across fork().
//
// SQLite's unix layer keeps the lock state of every open database file in a table of the
// process, keyed by inode: the connections of one process share it, and only the first lock
// of the process reaches the file through fcntl(). A child made by fork() inherits that table
// but none of the fcntl() locks. A connection the child opens joins the inherited entries and
// believes locks held that the child does not hold: a write waits forever for a "reserved"
// lock, a read runs without the lock that protects it, and the parent, closing last, may
// delete the write-ahead log under the child.
//
// Hence:
//  - Every call into SQLite through a store connection runs inside the operation gate (a
//    single statement, or a whole transaction or read snapshot). Before fork() the handler
//    closes the gate to new entries and waits, at most the busy time-out, until no other
//    thread is inside it.
//  - When it got there and the forking thread is not inside an operation either, every
//    inherited connection is idle: no lock, no transaction. Before its first use of the
//    store the child closes them all without checkpoint (nothing of the shared files
//    changes), which empties the inherited lock table; each connection object then opens a
//    handle of its own, so store handles made before fork() go on working in the child.
//  - Otherwise the child must never touch an inherited connection (even closing one could
//    roll back into the write-ahead index it shares with the parent): every store use in the
//    child fails with a clear cause, for the child's whole life. The parent's transaction
//    stays the parent's and commits normally.
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <unordered_set>
#include <vector>

#include "dbstore/db_store_connection.h"
#include "setvault/logger.h"

namespace DBStore {
namespace internal {
namespace {

using KorvoSetvault::SVLogger;

// Threads inside the gate. A thread counts once however deeply it nests.
std::atomic<int> g_active{0};
// Set while a fork is being prepared: threads outside the gate wait to enter.
std::atomic<bool> g_fork_pending{false};
std::atomic<uint64_t> g_generation{0};
// This process was forked inside a store operation: it must not use the store.
std::atomic<bool> g_unusable{false};

thread_local int t_depth = 0;

struct ForkState {
  std::mutex fork_mutex;  // one fork preparation at a time
  bool fork_inside = false;  // the preparation did not find the gate empty
  std::mutex mutex;        // guards the members below
  std::unordered_set<StoreConnection*> connections;
  std::vector<std::mutex*> held;
  uint64_t settled = 0;  // the generation whose inherited connections are retired
};

ForkState& State() {
  static ForkState* state = new ForkState();  // leaked: used by fork handlers until exit
  return *state;
}

void PauseBriefly() {
  struct timespec pause = {0, 1000 * 1000};
  nanosleep(&pause, nullptr);
}

void PrepareFork() {
  ForkState& state = State();
  state.fork_mutex.lock();
  g_fork_pending.store(true);
  bool inside = t_depth > 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBusyTimeoutMs);
  while (!inside && g_active.load() > 0) {
    if (std::chrono::steady_clock::now() >= deadline) inside = true;
    PauseBriefly();
  }
  state.fork_inside = inside;
  state.mutex.lock();
  for (std::mutex* held : state.held) held->lock();
}

void Release(ForkState& state) {
  for (auto it = state.held.rbegin(); it != state.held.rend(); ++it) (*it)->unlock();
  state.mutex.unlock();
  g_fork_pending.store(false);
  state.fork_mutex.unlock();
}

void AfterForkInParent() { Release(State()); }

void AfterForkInChild() {
  ForkState& state = State();
  g_generation.fetch_add(1);
  if (state.fork_inside) g_unusable.store(true);
  // The writers' turn files share their locks with the parent's: drop them.
  for (StoreConnection* conn : state.connections) {
    if (conn->write_turn_fd >= 0) close(conn->write_turn_fd);
    conn->write_turn_fd = -1;
    conn->holds_write_turn = false;
  }
  g_active.store(0);  // the other threads are gone
  t_depth = 0;        // an operation the forking thread was inside is not this process's
  Release(state);
}

void InstallForkHandlers() {
  static std::once_flag once;
  std::call_once(once, [] {
    State();
    pthread_atfork(PrepareFork, AfterForkInParent, AfterForkInChild);
  });
}

// Retires every connection inherited over the latest fork, once, when that is safe; marks
// the process unusable when one of them is inside a transaction.
void SettleAfterFork() {
  ForkState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  const uint64_t generation = g_generation.load();
  if (state.settled == generation || g_unusable.load()) return;
  for (StoreConnection* conn : state.connections) {
    if (conn->fork_generation() != generation && conn->db() != nullptr &&
        (conn->depth > 0 || !sqlite3_get_autocommit(conn->db()))) {
      g_unusable.store(true);
      return;
    }
  }
  for (StoreConnection* conn : state.connections) {
    if (conn->fork_generation() != generation) conn->RetireInherited();
  }
  state.settled = generation;
}

}  // namespace

void EnterOperation() {
  if (t_depth++ > 0) return;
  for (;;) {
    g_active.fetch_add(1);
    if (!g_fork_pending.load()) return;
    g_active.fetch_sub(1);
    while (g_fork_pending.load()) PauseBriefly();
  }
}

void LeaveOperation() {
  if (t_depth > 0 && --t_depth == 0) g_active.fetch_sub(1);
}

uint64_t ForkGeneration() { return g_generation.load(std::memory_order_relaxed); }

bool ProcessMayUseStore(const std::string& path) {
  if (!g_unusable.load()) return true;
  SVLogger::Log(0,
                "Store database %s: this process was forked while a store transaction or "
                "operation was open, so it cannot use the store",
                path.c_str());
  RecordForkRefusal();
  return false;
}

bool UsableHere(const std::shared_ptr<StoreConnection>& conn) {
  if (conn->fork_generation() == ForkGeneration() && !g_unusable.load(std::memory_order_relaxed)) {
    return true;
  }
  SettleAfterFork();
  return ProcessMayUseStore(conn->path());
}

void HoldAcrossFork(std::mutex* mutex) {
  InstallForkHandlers();
  ForkState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (std::find(state.held.begin(), state.held.end(), mutex) == state.held.end()) {
    state.held.push_back(mutex);
  }
}

void RegisterConnection(StoreConnection* conn) {
  InstallForkHandlers();
  ForkState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.connections.insert(conn);
}

void UnregisterConnection(StoreConnection* conn) {
  if (conn->fork_generation() != ForkGeneration()) SettleAfterFork();
  ForkState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  state.connections.erase(conn);
}

}  // namespace internal

void StoreConnection::RetireInherited() {
  if (db_ != nullptr) {
    sqlite3_rollback_hook(db_, nullptr, nullptr);
    cache_->Clear();
    // Statements still handed out belong to threads that do not exist in this process.
    while (sqlite3_stmt* stmt = sqlite3_next_stmt(db_, nullptr)) sqlite3_finalize(stmt);
    sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_close_v2(db_);
    db_ = nullptr;
  }
  cache_ = std::make_shared<internal::StatementCache>();
  fork_generation_ = internal::ForkGeneration();
  busy_timeout_ms_ = -1;
  key_values_ = internal::KeyValueCache();
  depth = 0;
  doomed = false;
  gate_held = false;
  schema_attachments = 0;
  schema_detach_pending = false;
}

}  // namespace DBStore
