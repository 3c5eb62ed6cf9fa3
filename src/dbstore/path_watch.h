// Notices, without a stat() per look, when a path may have come to name another file (or,
// when asked, when that file was written): the hot read path checks its store and schema
// files on every call, and a system call per file and call costs more than the read itself.
//
//   PathWatch watch(path, PathWatch::kEntryAndContents);
//   uint64_t seen = 0;
//   ...
//   const uint64_t now = watch.Version();  // one non-blocking read of the process's queue
//   if (now != seen && LookAtTheFile()) seen = now;
#ifndef SETVAULT_SRC_DBSTORE_PATH_WATCH_H_
#define SETVAULT_SRC_DBSTORE_PATH_WATCH_H_

#include <cstdint>
#include <memory>
#include <string>

namespace DBStore {
namespace internal {

struct WatchEntry;

// Watches one path through the process's inotify queue: every directory from the root down
// to the path for entries of the next name being created, removed, renamed or changed in
// their attributes, and, with kEntryAndContents, writes to the file and to its "-wal" and
// "-journal" companions. Another process's rename(), unlink() or write() is queued before
// that call returns, so a Version() read afterwards already differs.
//
// Where the queue cannot tell (a relative path, inotify unavailable or out of watches, the
// queue overflowed, a watched directory removed or moved, a fork), every Version() call
// returns a new number, so callers look at the file each time as they would without a watch.
// Not seen: writes through a hard link in another directory, and changes on file systems
// whose changes inotify does not report (network file systems).
//
// Thread-safe; works across fork() (the child starts its own queue).
class PathWatch {
 public:
  enum What { kEntry, kEntryAndContents };

  PathWatch(const std::string& path, What what);
  ~PathWatch();
  PathWatch(const PathWatch&) = delete;
  PathWatch& operator=(const PathWatch&) = delete;

  // A number that changes whenever the path may name another file (or its contents may
  // have changed) since an earlier call; never 0, so 0 serves as "never checked". Costs one
  // non-blocking read() while the queue works.
  uint64_t Version();

  const std::string& path() const;

 private:
  std::unique_ptr<WatchEntry> entry_;
};

// Within its scope the calling thread reads the queue once: a store call that checks both the
// schema database and the store file, moments apart, looks once for both. What the queue holds
// at that look is what the call sees, as when each check looked at its file in turn. Nests;
// outside every scope each Version() reads the queue.
class OneLookPerCall {
 public:
  OneLookPerCall();
  ~OneLookPerCall();
  OneLookPerCall(const OneLookPerCall&) = delete;
  OneLookPerCall& operator=(const OneLookPerCall&) = delete;
};

}  // namespace internal
}  // namespace DBStore

#endif  // SETVAULT_SRC_DBSTORE_PATH_WATCH_H_
