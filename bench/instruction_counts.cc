// One operation of the store beside its hand-written floor (bench/hand_floor.h), each side's
// calls made from a function of its own so that a profiler can read the cost per call:
// `CountedLibraryCalls` and `CountedFloorCalls` hold exactly the counted calls (the
// statements are prepared and the caches filled by warm-up calls made outside them). The
// store holds the host object and 1,000 vswitch instances, the data of floor_table.
//
// Usage:
//   instruction_counts --list                 operations: name, objects per call, label
//   instruction_counts OPERATION CALLS [library|floor]
//                                             CALLS calls on each side (or on one side)
// bench/instruction_counts.sh runs each operation under callgrind and strace.
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "floor_data.h"
#include "floor_sql.h"
#include "hand_floor.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"

namespace {

using floor_bench::Die;
using floor_bench::Exec;
using floor_bench::kHost;
using floor_bench::MakeObject;
using floor_bench::Name;
using floor_bench::SwitchId;
using KorvoSetvault::SetvaultObject;

constexpr int kStored = 1000;  // vswitch instances in the store
constexpr int kDistinct = 16;  // ids that Set and Update cycle through
constexpr int kWarmUpCalls = 2;

// The state both sides work on.
struct Bench {
  std::shared_ptr<KorvoSetvault::Setvault> store;
  std::unique_ptr<floor_bench::Hand> hand;
  std::vector<std::string> texts, updates;  // kDistinct each
  std::vector<std::string> list_texts;      // two versions of each stored instance
  const KorvoSetvault::USERDATA_CONTEXT external{KorvoSetvault::kExternalContext};
};

// One side of an operation: what comes before and after its calls (untimed, uncounted) and
// call number `i`.
struct Side {
  std::function<void()> begin = [] {};
  std::function<void(int i)> call;
  std::function<void()> end = [] {};
};

// A side making `call`, inside `around`'s begin and end.
Side Calls(std::function<void(int)> call, Side around = {}) {
  around.call = std::move(call);
  return around;
}

struct Operation {
  const char* name;
  int objects;  // objects each call handles
  const char* label;
  std::function<void(Bench&)> setup;
  Side library, floor;
};

// The calls each table row counts. Calls are numbered on from the warm-up calls, so that
// "not in the object cache" reads objects the warm-up did not read.
std::vector<Operation> Operations(Bench& b) {
  auto cache = [](bool on) { return [on](Bench&) { KorvoSetvault::SetObjectCacheEnabled(on); }; };
  auto get_library = [&b](const KorvoSetvault::SetvaultObjectId& id) {
    if (!b.store->Get(id)) Die("no object " + id.instanceId);
  };
  auto get_floor = [&b](const KorvoSetvault::SetvaultObjectId& id) {
    if (b.hand->Get(id).empty) Die("no row " + id.instanceId);
  };
  const Side library_transaction{[&b] { b.store->BeginTransaction(); }, nullptr,
                                 [&b] { b.store->CommitTransaction(); }};
  const Side floor_transaction{[&b] { Exec(b.hand->db, "BEGIN IMMEDIATE"); }, nullptr,
                               [&b] { Exec(b.hand->db, "COMMIT"); }};
  // Whole lists alternate between two versions of every object, so each call changes them.
  auto list_text = [&b](int i, int n) -> const std::string& {
    return b.list_texts[(i % 2) * kStored + n];
  };
  return {
      {"get-cached", 1, "Get, repeated (object cache)", cache(true),
       Calls([=](int) { get_library(kHost); }), Calls([=](int) { get_floor(kHost); })},
      {"get-no-cache", 1, "Get, object cache off (host, 4 columns)", cache(false),
       Calls([=](int) { get_library(kHost); }), Calls([=](int) { get_floor(kHost); })},
      {"get-miss", 1, "Get not in the object cache (a switch)", cache(true),
       Calls([=](int i) { get_library(SwitchId(i % kStored)); }),
       Calls([=](int i) { get_floor(SwitchId(i % kStored)); })},
      {"set", 1, "Set in the caller's transaction", cache(true),
       Calls(
           [&b](int i) {
             const int n = i % kDistinct;
             b.store->Set(MakeObject(SwitchId(n), b.texts[n]), b.external);
           },
           library_transaction),
       Calls([&b](int i) { b.hand->Set(Name(i % kDistinct), b.texts[i % kDistinct]); },
             floor_transaction)},
      {"update", 1, "Update in the caller's transaction", cache(true),
       Calls(
           [&b](int i) {
             const int n = i % kDistinct;
             b.store->Update(MakeObject(SwitchId(n), b.updates[n]), b.external);
           },
           library_transaction),
       Calls([&b](int i) { b.hand->Update(Name(i % kDistinct), b.updates[i % kDistinct]); },
             floor_transaction)},
      {"set-instances", kStored, "SetInstances of 1,000, per object", cache(true),
       Calls([&b, list_text](int i) {
         std::vector<std::shared_ptr<SetvaultObject>> objects;
         objects.reserve(kStored);
         for (int n = 0; n < kStored; ++n)
           objects.push_back(MakeObject(SwitchId(n), list_text(i, n)));
         b.store->SetInstances(std::move(objects), b.external);
       }),
       Calls([&b, list_text](int i) {
         Exec(b.hand->db, "BEGIN IMMEDIATE");
         for (int n = 0; n < kStored; ++n) b.hand->Set(Name(n), list_text(i, n));
         Exec(b.hand->db, "COMMIT");
       })},
      {"get-instances", kStored, "GetInstances of 1,000, per object", cache(true), Calls([&b](int) {
         auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(floor_bench::kSwitchType);
         if (b.store->GetInstances(filter).size() != kStored) Die("instances");
       }),
       Calls([&b](int) {
         if (b.hand->GetInstances(floor_bench::kSwitchType).size() != kStored) Die("hand rows");
       })},
  };
}

// The counted calls, kept out of line so that their inclusive cost is that of the calls.
__attribute__((noinline)) void CountedLibraryCalls(const Side& side, int from, int calls) {
  for (int i = from; i < from + calls; ++i) side.call(i);
}
__attribute__((noinline)) void CountedFloorCalls(const Side& side, int from, int calls) {
  for (int i = from; i < from + calls; ++i) side.call(i);
}

void Run(const Side& side, int calls, void (*counted)(const Side&, int, int)) {
  side.begin();
  for (int i = 0; i < kWarmUpCalls; ++i) side.call(i);
  counted(side, kWarmUpCalls, calls);
  side.end();
}

// A fresh schema database and store under `dir`, and both sides' handles on the store.
void Prepare(const std::string& dir, Bench& b) {
  KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
  KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
  KorvoSetvault::SetStorePath(dir + "/defaults.db");  // loading writes shipped defaults
  if (KorvoSetvault::LoadSchemaDefinitions(SETVAULT_SOURCE_DIR "/examples/schemas") == 0) {
    Die("no example schemas under " SETVAULT_SOURCE_DIR);
  }
  const std::string path = dir + "/store.db";
  floor_bench::MakeStore(path, kStored);
  b.store = KorvoSetvault::Setvault::GetStore("");
  b.hand = std::make_unique<floor_bench::Hand>(floor_bench::OpenHandConnection(path));
  for (int n = 0; n < kDistinct; ++n) {
    b.texts.push_back(floor_bench::SwitchJson(Name(n), 1400 + n));
    b.updates.push_back(floor_bench::UpdateJson(Name(n), 2000 + n));
  }
  for (int mtu : {1600, 1700}) {
    for (int n = 0; n < kStored; ++n) b.list_texts.push_back(floor_bench::SwitchJson(Name(n), mtu));
  }
}

[[noreturn]] void Usage() {
  Die("usage: instruction_counts --list | OPERATION CALLS [library|floor]");
}

}  // namespace

int main(int argc, char** argv) {
  Bench bench;
  std::vector<Operation> operations = Operations(bench);
  if (argc == 2 && std::string(argv[1]) == "--list") {
    for (const Operation& op : operations)
      std::printf("%s\t%d\t%s\n", op.name, op.objects, op.label);
    return 0;
  }
  if (argc < 3 || argc > 4) Usage();
  const std::string name = argv[1], side = argc > 3 ? argv[3] : "";
  const int calls = std::atoi(argv[2]);
  if (calls < 1 || (side != "" && side != "library" && side != "floor")) Usage();
  const Operation* op = nullptr;
  for (const Operation& candidate : operations) {
    if (name == candidate.name) op = &candidate;
  }
  if (op == nullptr) Usage();

  std::string dir = std::filesystem::temp_directory_path() / "setvault-counts-XXXXXX";
  if (mkdtemp(&dir[0]) == nullptr) Die("mkdtemp");
  Prepare(dir, bench);
  op->setup(bench);
  if (side != "floor") Run(op->library, calls, CountedLibraryCalls);
  if (side != "library") Run(op->floor, calls, CountedFloorCalls);
  sqlite3* hand_db = bench.hand->db;  // the floor's statements go before their connection
  bench.hand.reset();
  sqlite3_close_v2(hand_db);
  bench.store.reset();
  std::filesystem::remove_all(dir);
  return 0;
}
