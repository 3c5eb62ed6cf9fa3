#include "schema/schema_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <mutex>

#include "dbstore/db_store_connection.h"
#include "dbstore/path_watch.h"
#include "schema/schema_database.h"
#include "schema/schema_definition.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"

namespace KorvoSchemaStore {

SchemaObjectCache::SchemaObjectCache(Map objects) : objects_(std::move(objects)) {}

std::string SchemaObjectCache::MakeKey(const std::string& component, const std::string& group,
                                       const std::string& key) {
  // Names never hold a NUL, so the key is unambiguous.
  std::string joined;
  joined.reserve(component.size() + group.size() + key.size() + 2);
  joined.append(component).push_back('\0');
  joined.append(group).push_back('\0');
  joined.append(key);
  return joined;
}

std::shared_ptr<SchemaObject> SchemaObjectCache::GetSchemaObject(const std::string& component,
                                                                 const std::string& group,
                                                                 const std::string& key) const {
  auto found = objects_.find(MakeKey(component, group, key));
  return found == objects_.end() ? nullptr : found->second;
}

void SchemaObjectCache::ForEach(
    const std::function<void(const std::shared_ptr<SchemaObject>&)>& visit) const {
  for (const auto& entry : objects_) visit(entry.second);
}

SchemaStore::SchemaStore(std::shared_ptr<SchemaObjectCache> cache) : cache_(std::move(cache)) {}

SchemaStore::~SchemaStore() = default;

std::shared_ptr<SchemaObject> SchemaStore::GetSchemaObject(const std::string& component,
                                                           const std::string& group,
                                                           const std::string& key) {
  return cache_->GetSchemaObject(component, group, key);
}

namespace {

using KorvoSetvault::SVLogger;

// Which file a path named at the last reading (a replaced file has another
// inode).
struct FileIdentity {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;

  bool operator==(const FileIdentity& other) const {
    return exists == other.exists && device == other.device && inode == other.inode;
  }
};

FileIdentity IdentityOf(const std::string& path) {
  FileIdentity identity;
  struct stat info;
  if (stat(path.c_str(), &info) == 0) {
    identity.exists = true;
    identity.device = info.st_dev;
    identity.inode = info.st_ino;
  }
  return identity;
}

// The process-wide reading of the schema database.
struct StoreState {
  std::mutex mutex;
  uint64_t forkGeneration = 0;  // of the process that opened `reader`; a child opens its own
  std::string path;
  FileIdentity identity;
  std::unique_ptr<SchemaDatabaseReader> reader;
  int64_t dataVersion = -1;
  int64_t changeCounter = -1;  // the header's change counter at the last reading
  bool writeAheadLog = true;   // commits leave the header's change counter as it is
  std::shared_ptr<SchemaStore> store;
  // Tells when the file at `path` may have changed; `watchChecked` is its version at the
  // last look at the file (0: never looked).
  std::unique_ptr<DBStore::internal::PathWatch> watch;
  uint64_t watchChecked = 0;
  std::string problem;  // why the last reading gave no definitions; empty when it was read
};

StoreState& State() {
  static StoreState* state = [] {
    auto* created = new StoreState();  // leaked: used until process exit
    // A fork never finds the reader mid-read, so the child may close what it inherits.
    DBStore::internal::HoldAcrossFork(&created->mutex);
    return created;
  }();
  return *state;
}

std::shared_ptr<SchemaObjectCache> BuildCache(const std::vector<SchemaRow>& rows) {
  SchemaObjectCache::Map objects;
  for (const SchemaRow& row : rows) {
    const std::string origin =
        "schema database row " + row.component + "/" + row.group + "/" + row.name;
    try {
      auto definition = ParseSchemaDefinition(row.definition, origin);
      if (definition->component != row.component || definition->group != row.group ||
          definition->key != row.name) {
        SVLogger::Log(0, "%s: the definition names another type; skipped", origin.c_str());
        continue;
      }
      objects[SchemaObjectCache::MakeKey(row.component, row.group, row.name)] =
          std::make_shared<SchemaObject>(std::move(definition));
    } catch (const KorvoSetvault::SetvaultException& e) {
      SVLogger::Log(0, "Skipping unusable schema definition: %s", e.what());
    }
  }
  return std::make_shared<SchemaObjectCache>(std::move(objects));
}

// Re-reads the schema database into a new store. Never throws but bad_alloc.
void Reload(StoreState& state, const std::string& path, const FileIdentity& identity) {
  const bool reopen = !state.reader || path != state.path || !(identity == state.identity);
  state.path = path;
  state.identity = identity;
  std::vector<SchemaRow> rows;
  state.problem.clear();
  try {
    if (reopen) {
      state.reader.reset();
      state.dataVersion = -1;
      if (identity.exists) state.reader = std::make_unique<SchemaDatabaseReader>(path);
    }
    if (state.reader) {
      state.writeAheadLog = state.reader->UsesWriteAheadLog();
      state.dataVersion = state.reader->DataVersion();
      state.changeCounter = state.writeAheadLog ? -1 : state.reader->ChangeCounter();
      rows = state.reader->ReadAll();
    } else {
      state.problem = "the schema database " + path + " does not exist: no type is defined";
      SVLogger::Log(1, "%s", state.problem.c_str());
    }
  } catch (const KorvoSetvault::SetvaultException& e) {
    state.problem = std::string("the schema database cannot be read: ") + e.what();
    SVLogger::Log(0, "%s", state.problem.c_str());
    state.reader.reset();
  }
  state.store = std::make_shared<SchemaStore>(BuildCache(rows));
  if (state.problem.empty() && state.store->GetSchemaCache()->Size() == 0) {
    state.problem = "the schema database " + path + " holds no definitions";
  }
  SVLogger::Log(2, "Read %zu schema definitions from %s", state.store->GetSchemaCache()->Size(),
                path.c_str());
}

bool NeedsReload(StoreState& state, const std::string& path, const FileIdentity& identity) {
  const uint64_t generation = DBStore::internal::ForkGeneration();
  if (state.forkGeneration != generation) {
    state.forkGeneration = generation;
    state.reader.reset();  // idle (see State()): closing it touches nothing of the parent's
    return true;
  }
  if (!state.store || path != state.path || !(identity == state.identity)) return true;
  if (!state.reader) return false;
  // In rollback-journal mode every commit raises the header's change counter:
  // reading those four bytes costs one read of the file, not a query, also
  // in the seconds after a load when the file's time stamps cannot tell.
  if (!state.writeAheadLog) {
    const int64_t counter = state.reader->ChangeCounter();
    if (counter >= 0 && state.changeCounter >= 0) return counter != state.changeCounter;
  }
  return state.reader->DataVersion() != state.dataVersion;
}

}  // namespace

std::shared_ptr<SchemaStore> SchemaStore::GetStore(bool forceReload) {
  StoreState& state = State();
  const std::string path = KorvoSetvault::GetSchemaStorePath();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (!state.watch || state.watch->path() != path) {
    state.watch = std::make_unique<DBStore::internal::PathWatch>(
        path, DBStore::internal::PathWatch::kEntryAndContents);
    state.watchChecked = 0;
  }
  // While nothing touched the file since the last look, the look is skipped: no stat()
  // of the path and no read of the header per lookup. A new path (a new watch) and a fork
  // (the child's queue starts anew) always give a version not looked at yet.
  const uint64_t version = state.watch->Version();
  if (version == state.watchChecked && !forceReload) return state.store;
  const FileIdentity identity = IdentityOf(path);
  const bool changed = NeedsReload(state, path, identity);
  if (changed || forceReload) Reload(state, path, identity);
  state.watchChecked = version;
  return state.store;
}

std::shared_ptr<SchemaObjectCache> SchemaStore::GetCache() {
  return GetStore(false)->GetSchemaCache();
}

std::string SchemaStore::DescribeMissing(const std::string& what) {
  StoreState& state = State();
  std::lock_guard<std::mutex> lock(state.mutex);
  if (!state.problem.empty()) return state.problem;
  return "the schema database " + state.path + " is read but holds no definition of " + what;
}

}  // namespace KorvoSchemaStore
