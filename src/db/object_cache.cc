#include "db/object_cache.h"

#include <sqlite3.h>

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>

#include "dbstore/db_store_connection.h"
#include "document/json_copy.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"

namespace KorvoSetvault {
namespace {

std::atomic<bool> g_enabled{true};
// One decoded object: its data and metadata, and the schema it was decoded with.
struct Entry {
  SchemaPtr schema;
  std::shared_ptr<JsonDoc> document;  // null while the object was read once only
  ObjectMetadata metadata;
  size_t bytes = 0;  // the key's and the document allocator's
};

// The cache of one thread, for the connection it last read through.
struct ThreadCache {
  std::weak_ptr<DBStore::StoreConnection> owner;
  uint64_t fork_generation = 0;
  DBStore::StoreStamp stamp;
  std::unordered_map<std::string, Entry> entries;
  size_t bytes = 0;  // of all entries

  void Clear() {
    entries.clear();
    bytes = 0;
  }
  void Evict(std::unordered_map<std::string, Entry>::iterator entry) {
    bytes -= entry->second.bytes;
    entries.erase(entry);
  }
};

thread_local ThreadCache t_cache;

bool SameConnection(const std::weak_ptr<DBStore::StoreConnection>& owner,
                    const ConnectionPtr& conn) {
  // The weak pointer keeps the owner's control block alive, so an equal control block is
  // the same connection, not a new one at a reused address.
  return !owner.owner_before(conn) && !conn.owner_before(owner);
}

// This thread's cache, emptied when it belonged to another connection or to the parent
// process.
ThreadCache& CacheFor(const ConnectionPtr& conn) {
  ThreadCache& cache = t_cache;
  // What a thread cached before a fork() belongs to the parent's connection state.
  const uint64_t generation = DBStore::internal::ForkGeneration();
  if (cache.fork_generation != generation || !SameConnection(cache.owner, conn)) {
    cache.Clear();
    cache.stamp = DBStore::StoreStamp();
    cache.owner = conn;
    cache.fork_generation = generation;
  }
  return cache;
}

std::string KeyOf(const SetvaultObjectId& id) {
  // Names never hold a NUL, so the key is unambiguous.
  std::string key;
  key.reserve(id.component.size() + id.group.size() + id.key.size() + id.instanceId.size() + 3);
  key.append(id.component).push_back('\0');
  key.append(id.group).push_back('\0');
  key.append(id.key).push_back('\0');
  key.append(id.instanceId);
  return key;
}

ObjectPtr CopyOut(const SetvaultObjectId& id, const Entry& entry) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = CopyDocument(*entry.document);
  parts.schema = entry.schema;
  parts.loadSchema = true;
  parts.metadata = entry.metadata;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}

// Keeps what Get decoded. An object read for the first time is only remembered as seen: a
// copy is kept when it is read again unchanged, so that objects read once cost no copy.
void Keep(ThreadCache& cache, std::string key, const SchemaPtr& schema, const ObjectPtr& object,
          bool seen_before) {
  const auto& impl = object->GetImpl();
  if (impl->GetDocument()->GetAllocator().Size() > kMaxCachedObjectBytes) return;
  Entry entry{schema, nullptr, {}, key.size()};
  if (seen_before) {
    entry.document = CopyDocument(*impl->GetDocument());
    entry.metadata = impl->GetMetadata();
    entry.bytes += entry.document->GetAllocator().Capacity();
  }
  auto same = cache.entries.find(key);
  if (same != cache.entries.end()) cache.Evict(same);
  while (!cache.entries.empty() && (cache.entries.size() >= kMaxCachedObjects ||
                                    cache.bytes + entry.bytes > kMaxCachedBytes)) {
    cache.Evict(cache.entries.begin());
  }
  cache.bytes += entry.bytes;
  cache.entries.emplace(std::move(key), std::move(entry));
}

// Brings the cache's stamp up to date with `refresh` (RefreshStoreStamp or StampLastRead),
// emptying the cache when the store may have changed.
void Refresh(ThreadCache& cache, const ConnectionPtr& conn, const SetvaultObjectId& id,
             int (*refresh)(const ConnectionPtr&, DBStore::StoreStamp*)) {
  const int changed = refresh(conn, &cache.stamp);
  if (changed < 0)
    throw SetvaultException(SV_ERR_GENERIC, ("Get failed: " + id.toString()).c_str());
  if (changed > 0) cache.Clear();
}

template <typename Read>
ObjectPtr ReadAndKeep(ThreadCache& cache, std::string key, const SchemaPtr& schema,
                      const Read& read, bool seen_before) {
  DecodedObject decoded = read();
  if (decoded.object && decoded.cacheable) {
    Keep(cache, std::move(key), schema, decoded.object, seen_before);
  }
  return decoded.object;
}

}  // namespace

void SetObjectCacheEnabled(bool enabled) { g_enabled.store(enabled); }

ObjectPtr GetThroughObjectCache(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                const SchemaPtr& schema,
                                const std::function<DecodedObject()>& read) {
  if (!conn || !g_enabled.load(std::memory_order_relaxed)) return read().object;
  ThreadCache& cache = CacheFor(conn);
  std::string key = KeyOf(id);
  auto found = cache.entries.find(key);
  if (found == cache.entries.end() || found->second.schema != schema) {
    if (sqlite3_get_autocommit(DBStore::GetSqliteHandle(*conn))) {
      // The row's statement read in a transaction of its own: the stamp taken right after
      // it is that of the snapshot it read.
      auto read_and_stamp = [&] {
        DecodedObject decoded = read();
        Refresh(cache, conn, id, DBStore::StampLastRead);
        return decoded;
      };
      return ReadAndKeep(cache, std::move(key), schema, read_and_stamp, false);
    }
    // Inside the caller's transaction the stamp and the row read one snapshot.
    Refresh(cache, conn, id, DBStore::RefreshStoreStamp);
    return ReadAndKeep(cache, std::move(key), schema, read, false);
  }
  // The stamp is taken before the row is read: a commit landing in between leaves the entry
  // older than its stamp says, and the next read finds the stamp changed.
  Refresh(cache, conn, id, DBStore::RefreshStoreStamp);
  found = cache.entries.find(key);
  if (found == cache.entries.end()) return ReadAndKeep(cache, std::move(key), schema, read, false);
  if (found->second.document) return CopyOut(id, found->second);
  return ReadAndKeep(cache, std::move(key), schema, read, true);
}

}  // namespace KorvoSetvault
