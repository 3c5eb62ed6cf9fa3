#include "dbstore/path_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <mutex>
#include <vector>

#include "dbstore/db_store_connection.h"

namespace DBStore {
namespace internal {

// One path's place in the queue.
struct WatchEntry {
  std::string path;
  PathWatch::What what = PathWatch::kEntry;
  std::vector<int> descriptors;    // one per directory from the root down to the path
  std::vector<std::string> names;  // the name that matters in each of those directories
  uint64_t version = 1;
  bool watched = false;  // false: the queue cannot tell, every Version() is new
};

namespace {

constexpr uint32_t kEntryEvents =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr uint32_t kLostEvents = IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;

// The process's inotify queue and the paths it serves. Watches of directories are never
// removed: entries share them, and a removed directory drops its own.
struct Queue {
  std::mutex mutex;
  int fd = -1;
  uint64_t fork_generation = 0;
  std::vector<WatchEntry*> entries;
};

// The calling thread's OneLookPerCall scopes, and whether the queue was read within them.
thread_local int t_call_depth = 0;
thread_local bool t_looked = false;

Queue& TheQueue() {
  static Queue* queue = [] {
    auto* created = new Queue();  // leaked: connections of exiting threads still unregister
    HoldAcrossFork(&created->mutex);
    created->fork_generation = ForkGeneration();
    return created;
  }();
  return *queue;
}

// Splits "/a/b/c" into the directories "/", "/a", "/a/b" and the names "a", "b", "c".
// False for a path the queue cannot follow (relative, or with "." or ".." parts).
bool SplitPath(const std::string& path, std::vector<std::string>* dirs,
               std::vector<std::string>* names) {
  if (path.empty() || path[0] != '/') return false;
  std::string dir = "/";
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string name = path.substr(start, end - start);
    start = end + 1;
    if (name.empty()) continue;
    if (name == "." || name == "..") return false;
    dirs->push_back(dir);
    names->push_back(name);
    dir += (dir.size() > 1 ? "/" : "") + name;
  }
  return !names->empty();
}

void Register(Queue& queue, WatchEntry& entry) {
  entry.descriptors.clear();
  entry.names.clear();
  entry.watched = false;
  if (queue.fd < 0) queue.fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  std::vector<std::string> dirs;
  if (queue.fd < 0 || !SplitPath(entry.path, &dirs, &entry.names)) return;
  for (size_t i = 0; i < dirs.size(); ++i) {
    const bool last = i + 1 == dirs.size();
    uint32_t mask = kEntryEvents | IN_ONLYDIR | IN_MASK_ADD;
    if (last && entry.what == PathWatch::kEntryAndContents) mask |= IN_MODIFY;
    const int descriptor = inotify_add_watch(queue.fd, dirs[i].c_str(), mask);
    if (descriptor < 0) return;
    entry.descriptors.push_back(descriptor);
  }
  entry.watched = true;
}

// True when `name` in the path's own directory is the file or a companion whose change
// changes what the file's readers see.
bool NamesContents(const std::string& name, const std::string& file) {
  return name == file || name == file + "-wal" || name == file + "-journal";
}

void Apply(Queue& queue, const inotify_event& event) {
  for (WatchEntry* entry : queue.entries) {
    if (event.mask & IN_Q_OVERFLOW) {
      ++entry->version;
      continue;
    }
    for (size_t i = 0; i < entry->descriptors.size(); ++i) {
      if (entry->descriptors[i] != event.wd) continue;
      if (event.mask & kLostEvents) {
        entry->watched = false;
        ++entry->version;
        break;
      }
      if (event.len == 0) continue;
      const std::string name(event.name);
      const bool last = i + 1 == entry->descriptors.size();
      const bool contents = last && entry->what == PathWatch::kEntryAndContents &&
                            NamesContents(name, entry->names[i]);
      if ((name == entry->names[i] && (event.mask & kEntryEvents)) || contents) {
        ++entry->version;
      }
    }
  }
}

// Reads every queued event. A queue that fails is dropped: the entries fall back to
// looking at their files.
void Drain(Queue& queue) {
  alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
  for (;;) {
    const ssize_t got = read(queue.fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return;
    if (got <= 0) {
      close(queue.fd);
      queue.fd = -1;
      for (WatchEntry* entry : queue.entries) entry->watched = false;
      return;
    }
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      Apply(queue, *event);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
}

// In a child: the inherited queue is shared with the parent, whose events it must not take.
void StartAfterFork(Queue& queue) {
  if (queue.fd >= 0) close(queue.fd);
  queue.fd = -1;
  queue.fork_generation = ForkGeneration();
  for (WatchEntry* entry : queue.entries) {
    Register(queue, *entry);
    ++entry->version;
  }
}

}  // namespace

PathWatch::PathWatch(const std::string& path, What what) : entry_(std::make_unique<WatchEntry>()) {
  entry_->path = path;
  entry_->what = what;
  Queue& queue = TheQueue();
  std::lock_guard<std::mutex> lock(queue.mutex);
  queue.entries.push_back(entry_.get());
  if (queue.fork_generation == ForkGeneration()) Register(queue, *entry_);
}

PathWatch::~PathWatch() {
  Queue& queue = TheQueue();
  std::lock_guard<std::mutex> lock(queue.mutex);
  queue.entries.erase(std::find(queue.entries.begin(), queue.entries.end(), entry_.get()));
}

const std::string& PathWatch::path() const { return entry_->path; }

uint64_t PathWatch::Version() {
  Queue& queue = TheQueue();
  std::lock_guard<std::mutex> lock(queue.mutex);
  if (queue.fork_generation != ForkGeneration()) {
    StartAfterFork(queue);
  } else if (queue.fd >= 0 && !(t_call_depth > 0 && t_looked)) {
    Drain(queue);
  }
  t_looked = t_call_depth > 0;
  if (!entry_->watched) {
    // Looked at again on every call until the path can be watched, so the caller looks
    // at its file every time meanwhile.
    Register(queue, *entry_);
    ++entry_->version;
  }
  return entry_->version;
}

OneLookPerCall::OneLookPerCall() {
  if (t_call_depth++ == 0) t_looked = false;
}

OneLookPerCall::~OneLookPerCall() { --t_call_depth; }

}  // namespace internal
}  // namespace DBStore
