// The objects the library-beside-floor comparisons read and write, and the store holding
// them: a host object of about 500 bytes over four value columns and vswitch instances.
#ifndef SETVAULT_BENCH_FLOOR_DATA_H_
#define SETVAULT_BENCH_FLOOR_DATA_H_

#include <sqlite3.h>

#include <memory>
#include <string>

#include "setvault/object_id.h"
#include "setvault/setvault_object.h"

namespace floor_bench {

// The host object's value columns (about 500 bytes in all), and its id.
extern const char kHostVital[];
extern const char kHostCached[];
extern const char kHostAuto[];
extern const char kHostUser[];
extern const KorvoSetvault::SetvaultObjectId kHost;

// The name of the vswitch instance `i` ("vs<i>") and its id.
std::string Name(int i);
KorvoSetvault::SetvaultObjectId SwitchId(int i);
// A whole vswitch object named `name`, and an update of its MTU and one teaming flag.
std::string SwitchJson(const std::string& name, int mtu);
std::string UpdateJson(const std::string& name, int mtu);
// A new object `id` holding `text`, as a caller of Set or Update builds it.
std::shared_ptr<KorvoSetvault::SetvaultObject> MakeObject(const KorvoSetvault::SetvaultObjectId& id,
                                                          const std::string& text);

// Makes the store at `path` the process's store and fills it with the host object and
// `switches` vswitch instances, with the library's tables (made by opening it through the
// library once).
void MakeStore(const std::string& path, int switches);
// A connection of the floor's own to the store at `path`, with the library's settings
// (write-ahead log, full sync, the same busy timeout).
sqlite3* OpenHandConnection(const std::string& path);

}  // namespace floor_bench

#endif  // SETVAULT_BENCH_FLOOR_DATA_H_
