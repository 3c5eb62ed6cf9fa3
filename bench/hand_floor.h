// The hand-written floors of the store's operations: the same SQL on the sqlite3 C API with
// statements prepared once, the same RapidJSON parsing and merging, and for writes the same
// compiled validator and split into value columns. Writes are of the example vswitch type.
#ifndef SETVAULT_BENCH_HAND_FLOOR_H_
#define SETVAULT_BENCH_HAND_FLOOR_H_

#include <sqlite3.h>

#include <string>
#include <vector>

#include "setvault/json_doc.h"
#include "setvault/object_id.h"

namespace floor_bench {

// The type the writes go to.
inline const KorvoSetvault::SetvaultObjectId kSwitchType("vswitch", "net", "korvo");

// The vswitch schema of the process's schema store; dies when there is none.
const KorvoSetvault::JsonValue& SwitchSchema();

// One decoded row: its columns parsed and merged in merge order, with its metadata.
struct Decoded {
  KorvoSetvault::JsonDocument document;
  std::string version, id, creation, modified;
  int revision = -1;
  bool empty = true;
};

// The hand-run statements of one store (`handle` stays the caller's).
class Hand {
 public:
  explicit Hand(sqlite3* handle);
  ~Hand();
  Hand(const Hand&) = delete;
  Hand& operator=(const Hand&) = delete;

  // The stored row of `id`, parsed and merged; empty when there is none.
  Decoded Get(const KorvoSetvault::SetvaultObjectId& id);
  // Every row of `type`, each parsed and merged.
  std::vector<Decoded> GetInstances(const KorvoSetvault::SetvaultObjectId& type);
  // Set of one switch: validate and split, read the columns carried over, write the row.
  void Set(const std::string& id, const std::string& text);
  // Update of one switch: validate the given members, merge them into the stored parts,
  // validate the result, split it and update the row in place.
  void Update(const std::string& id, const std::string& text);

  sqlite3* db;

 private:
  sqlite3_stmt* read_;
  sqlite3_stmt* instances_;
  sqlite3_stmt* carried_;
  sqlite3_stmt* write_;
  sqlite3_stmt* update_;
};

}  // namespace floor_bench

#endif  // SETVAULT_BENCH_HAND_FLOOR_H_
