// The store's operations beside their floor, interleaved in one process, printed as a
// Markdown table of medians.
//
// The floor of an operation is the same work written by hand: the same SQL on the sqlite3 C
// API with statements prepared once, the same RapidJSON parsing, merging and serialization,
// and for writes the same compiled validator and split into value columns. Each repetition
// times the library and then the floor (the order alternates between repetitions) on the
// same store file through connections with the same settings; the table reports the median
// time per operation over the repetitions.
//
// Reads run twice: with the schema database written long ago (its time stamps set an hour
// back) and written just before the repetition (one untimed call first lets the schema store
// notice the change; the timed calls then run in the seconds after a load). Writes and
// reads also run against stores holding few and many instances of the type, to show that
// their cost follows the objects handled and not the objects stored.
//
// Run: floor_table [repetitions (at least 7)] [only operations holding this text] > table.md
// (bench/run.sh does this)
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "floor_data.h"
#include "floor_sql.h"
#include "floor_timing.h"
#include "hand_floor.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"

namespace {

using floor_bench::Comparison;
using floor_bench::Decoded;
using floor_bench::Die;
using floor_bench::Exec;
using floor_bench::Hand;
using floor_bench::kHost;
using floor_bench::kSwitchType;
using floor_bench::MakeObject;
using floor_bench::MakeStore;
using floor_bench::Name;
using floor_bench::OpenHandConnection;
using floor_bench::Result;
using floor_bench::SwitchId;
using floor_bench::SwitchJson;
using floor_bench::UpdateJson;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;
using ObjectList = std::vector<std::shared_ptr<SetvaultObject>>;

// --- Files -----------------------------------------------------------------------------

struct Files {
  std::string dir;
  std::string schema;
  std::string Store(const std::string& name) const { return dir + "/" + name + ".db"; }
};

Files& TheFiles() {
  static Files files = [] {
    Files made;
    std::string pattern = "/tmp/setvault-floor-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) Die("mkdtemp");
    made.dir = pattern;
    made.schema = made.dir + "/schema.db";
    return made;
  }();
  return files;
}

// One store file with its library handle and its hand-run connection (same settings).
struct Side {
  std::string path;
  std::shared_ptr<KorvoSetvault::Setvault> store;
  sqlite3* hand = nullptr;
};

Side OpenSide(const std::string& name, int switches) {
  Side side;
  side.path = TheFiles().Store(name);
  MakeStore(side.path, switches);
  side.store = KorvoSetvault::Setvault::GetStore("");
  side.hand = OpenHandConnection(side.path);
  return side;
}

// Makes `side` the store the library's own lookups (host flags) go to, and reads once so
// that the thread's connection is open before anything is timed.
void Use(const Side& side) {
  KorvoSetvault::SetStorePath(side.path);
  side.store->Get(kHost);
}

// --- Schema database age -----------------------------------------------------------------

enum class SchemaAge { kOld, kJustLoaded };

// Leaves the schema database as a host finds it: written long ago, or just now.
void AgeSchemaDatabase(SchemaAge age, const Side& side) {
  const std::string& path = TheFiles().schema;
  if (age == SchemaAge::kJustLoaded) {
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) Die("open schema database");
    // A real change (trailing blank added or taken away) on one row.
    Exec(db,
         "UPDATE SmartnicSchema SET Definition = CASE WHEN Definition LIKE '% ' THEN "
         "rtrim(Definition) ELSE Definition || ' ' END WHERE rowid = (SELECT min(rowid) FROM "
         "SmartnicSchema)");
    sqlite3_close(db);
  } else {
    struct timespec times[2];
    clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= 3600;
    times[1] = times[0];
    utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
  side.store->Get(kHost);  // the schema store notices a change here, untimed
}

}  // namespace

// --- The suite ----------------------------------------------------------------------------

int main(int argc, char** argv) {
  const int repetitions = argc > 1 ? std::max(7, std::atoi(argv[1])) : 7;
  KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
  Files& files = TheFiles();
  KorvoSetvault::SetSchemaStorePath(files.schema);
  KorvoSetvault::SetStorePath(files.Store("defaults"));  // loading writes shipped defaults
  if (KorvoSetvault::LoadSchemaDefinitions(SETVAULT_SOURCE_DIR "/examples/schemas") == 0) {
    Die("no example schemas under " SETVAULT_SOURCE_DIR);
  }
  constexpr int kInstances = 10000;
  Side main_side = OpenSide("main", kInstances);
  Side few = OpenSide("few", 100);
  Side thousand = OpenSide("thousand", 1000);
  Side many = OpenSide("many", 100000);
  const KorvoSetvault::USERDATA_CONTEXT external{KorvoSetvault::kExternalContext};

  std::vector<Result> results;
  // An optional second argument runs only the operations whose name holds it (for perf).
  const std::string only = argc > 2 ? argv[2] : "";
  auto add = [&](Comparison comparison) {
    if (comparison.operation.find(only) == std::string::npos) return;
    results.push_back(floor_bench::Measure(comparison, repetitions));
  };

  // Reads of the host object and of 10,000 instances, in both schema database ages.
  for (SchemaAge age : {SchemaAge::kOld, SchemaAge::kJustLoaded}) {
    const std::string when =
        age == SchemaAge::kOld ? " (schema db loaded long ago)" : " (schema db just loaded)";
    Hand hand(main_side.hand);
    auto aged = [&, age] {
      Use(main_side);
      AgeSchemaDatabase(age, main_side);
    };
    auto floor_get = floor_bench::Timed{nullptr, [&](int) {
                                          Decoded decoded = hand.Get(kHost);
                                          if (decoded.empty) Die("no host row");
                                        }};
    for (bool cached : {true, false}) {
      add({std::string("Get, ") + (cached ? "repeated (object cache)" : "object cache off") + when,
           2000,
           {[&, aged, cached] {
              KorvoSetvault::SetObjectCacheEnabled(cached);
              aged();
            },
            [&](int) {
              if (!main_side.store->Get(kHost)) Die("no host object");
            },
            [] { KorvoSetvault::SetObjectCacheEnabled(true); }},
           floor_get,
           cached ? "<= 0.6" : "<= 1.3"});
    }
    // Objects not in the cache: 10,000 instances read in turn, more than the cache keeps.
    std::vector<SetvaultObjectId> ids;
    for (int n = 0; n < kInstances; ++n) ids.emplace_back("vswitch", "net", "korvo", Name(n));
    add({"Get of 10,000 objects in turn (not in the object cache)" + when,
         2000,
         {aged,
          [&, ids](int) {
            static int next = 0;
            if (!main_side.store->Get(ids[next++ % kInstances])) Die("no switch");
          }},
         {nullptr,
          [&, ids](int) {
            static int next = 0;
            if (hand.Get(ids[next++ % kInstances]).empty) Die("no switch row");
          }},
         "<= 1.3"});
    auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(kSwitchType);
    add({"GetInstances of 10,000" + when,
         3,
         {aged,
          [&](int) {
            if (main_side.store->GetInstances(filter).size() != kInstances) Die("instances");
          }},
         {nullptr,
          [&](int) {
            if (hand.GetInstances(kSwitchType).size() != kInstances) Die("hand instances");
          }},
         "<= 1.5"});
  }

  // Writes. Each side writes its own ids, so that both replace rows of the same shape.
  constexpr int kIds = 16;
  std::vector<std::string> texts, updates;
  for (int n = 0; n < kIds; ++n) {
    texts.push_back(SwitchJson(Name(n), 1400 + n));
    updates.push_back(UpdateJson(Name(n), 2000 + n));
  }

  for (Side* side : {&main_side}) {
    Hand hand(side->hand);
    auto begin_library = [side] {
      Use(*side);
      side->store->BeginTransaction();
    };
    auto commit_library = [side] { side->store->CommitTransaction(); };
    auto begin_hand = [&hand] { Exec(hand.db, "BEGIN IMMEDIATE"); };
    auto commit_hand = [&hand] { Exec(hand.db, "COMMIT"); };
    add({"Set in the caller's transaction",
         500,
         {begin_library,
          [&, side](int i) {
            side->store->Set(MakeObject(SwitchId(i % kIds), texts[i % kIds]), external);
          },
          commit_library},
         {begin_hand, [&](int i) { hand.Set(Name(i % kIds), texts[i % kIds]); }, commit_hand},
         "<= 1.5"});
    add({"Update in the caller's transaction",
         500,
         {begin_library,
          [&, side](int i) {
            side->store->Update(MakeObject(SwitchId(i % kIds), updates[i % kIds]), external);
          },
          commit_library},
         {begin_hand, [&](int i) { hand.Update(Name(i % kIds), updates[i % kIds]); }, commit_hand},
         "<= 1.5"});
    add({"Set on its own (commit with sync)",
         40,
         {[side] { Use(*side); },
          [&, side](int i) {
            side->store->Set(MakeObject(SwitchId(i % kIds), texts[i % kIds]), external);
          }},
         {nullptr,
          [&](int i) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            hand.Set(Name(i % kIds), texts[i % kIds]);
            Exec(hand.db, "COMMIT");
          }},
         "<= 1.1"});
    std::vector<std::string> instance_texts;
    for (int n = 0; n < kInstances; ++n) instance_texts.push_back(SwitchJson(Name(n), 1600));
    add({"SetInstances of 10,000 (10,000 stored)",
         1,
         {[side] { Use(*side); },
          [&, side](int) {
            ObjectList objects;
            objects.reserve(kInstances);
            for (int n = 0; n < kInstances; ++n) {
              objects.push_back(MakeObject(SwitchId(n), instance_texts[n]));
            }
            side->store->SetInstances(std::move(objects), external);
          }},
         {nullptr,
          [&](int) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            for (int n = 0; n < kInstances; ++n) hand.Set(Name(n), instance_texts[n]);
            Exec(hand.db, "COMMIT");
          }},
         "<= 1.5"});
  }

  // The same small operations against stores holding few and many instances of the type.
  struct Sized {
    Side* side;
    const char* stored;
  };
  for (const Sized& sized :
       {Sized{&few, "100"}, Sized{&thousand, "1,000"}, Sized{&many, "100,000"}}) {
    Side* side = sized.side;
    Hand hand(side->hand);
    const std::string at = std::string(" (") + sized.stored + " stored)";
    add({"SetInstances of 100" + at,
         5,
         {[side] { Use(*side); },
          [&, side](int) {
            ObjectList objects;
            for (int n = 0; n < 100; ++n)
              objects.push_back(MakeObject(SwitchId(n), texts[n % kIds]));
            side->store->SetInstances(std::move(objects), external);
          }},
         {nullptr,
          [&](int) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            for (int n = 0; n < 100; ++n) hand.Set(Name(n), texts[n % kIds]);
            Exec(hand.db, "COMMIT");
          }},
         "flat"});
    if (side == &few) continue;
    add({"Get, object cache off" + at,
         1000,
         {[side] {
            KorvoSetvault::SetObjectCacheEnabled(false);
            Use(*side);
          },
          [&, side](int i) { side->store->Get(SwitchId(i % kIds)); },
          [] { KorvoSetvault::SetObjectCacheEnabled(true); }},
         {nullptr, [&](int i) { hand.Get(SwitchId(i % kIds)); }},
         "flat"});
    add({"Set in the caller's transaction" + at,
         300,
         {[side] {
            Use(*side);
            side->store->BeginTransaction();
          },
          [&, side](int i) {
            side->store->Set(MakeObject(SwitchId(i % kIds), texts[i % kIds]), external);
          },
          [side] { side->store->CommitTransaction(); }},
         {[&] { Exec(hand.db, "BEGIN IMMEDIATE"); },
          [&](int i) { hand.Set(Name(i % kIds), texts[i % kIds]); },
          [&] { Exec(hand.db, "COMMIT"); }},
         "flat"});
    add({"Update in the caller's transaction" + at,
         300,
         {[side] {
            Use(*side);
            side->store->BeginTransaction();
          },
          [&, side](int i) {
            side->store->Update(MakeObject(SwitchId(i % kIds), updates[i % kIds]), external);
          },
          [side] { side->store->CommitTransaction(); }},
         {[&] { Exec(hand.db, "BEGIN IMMEDIATE"); },
          [&](int i) { hand.Update(Name(i % kIds), updates[i % kIds]); },
          [&] { Exec(hand.db, "COMMIT"); }},
         "flat"});
  }

  floor_bench::PrintTables(results, repetitions);
  for (Side* side : {&main_side, &few, &thousand, &many}) {
    side->store.reset();
    sqlite3_close_v2(side->hand);
  }
  std::string remove = "rm -rf '" + files.dir + "'";
  return std::system(remove.c_str()) == 0 ? 0 : 1;
}
