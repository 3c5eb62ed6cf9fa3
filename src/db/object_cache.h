// A cache of the objects Get decodes, one per thread and store connection.
//
// A cached object is handed out only after the store was found unchanged inside the read
// that hands it out (RefreshStoreStamp: another connection's commit, a write or rollback on
// this one, each empties the cache), for the same schema object, and always as a deep copy:
// callers never share data with the cache or with each other. The cache holds at most
// kMaxCachedObjects objects of at most kMaxCachedObjectBytes of decoded data each and
// kMaxCachedBytes in all; a child process after fork() starts with an empty one. An object
// read once is only remembered as seen, and copied into the cache when read again.
//
// It is on unless the host called SetObjectCacheEnabled(false).
#ifndef SETVAULT_SRC_DB_OBJECT_CACHE_H_
#define SETVAULT_SRC_DB_OBJECT_CACHE_H_

#include <cstddef>
#include <functional>

#include "db/row_readers.h"

namespace KorvoSetvault {

// The most objects one connection's cache holds, the largest object it keeps (bytes of its
// decoded document) and the memory all its documents may claim together.
constexpr size_t kMaxCachedObjects = 256;
constexpr size_t kMaxCachedObjectBytes = 64 * 1024;
constexpr size_t kMaxCachedBytes = 4 * 1024 * 1024;

// What a read of one object gives: the object (null when nothing is stored) and whether
// the object depends on nothing but the stored row and the schema (and so may be cached).
struct DecodedObject {
  ObjectPtr object;
  bool cacheable = false;
};

// The object stored under `id` as `read` decodes it through `conn` with `schema`, from
// this thread's cache of `conn` when the store is unchanged since it was decoded. The
// result is the caller's own object. Throws what `read` throws, and SetvaultException 2000
// "Get failed: <id>" when the store's data version cannot be read.
ObjectPtr GetThroughObjectCache(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                const SchemaPtr& schema,
                                const std::function<DecodedObject()>& read);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_OBJECT_CACHE_H_
