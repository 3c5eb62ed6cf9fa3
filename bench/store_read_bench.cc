// The store's reads (Get of one object, GetInstances of 10,000 instances)
// against their floor: the same SELECT run by hand with a prepared statement
// kept across calls, the same RapidJSON parsing of the four value columns and
// the same member merge (vital, cached, auto-configuration, then user), with
// nothing else. Both sides read one store file through one connection per
// side, with the logger at its default threshold (the per-call trace lines
// are off). The schema database is left unchanged for a few seconds before
// the first benchmark, as on a host where it was installed earlier.
//
// Run: store_read_bench --benchmark_repetitions=10 --benchmark_enable_random_interleaving=true
//      --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "db/statements.h"
#include "dbstore/db_store.h"
#include "floor_data.h"
#include "setvault/host_setup.h"
#include "setvault/json_doc.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_store.h"

namespace {

using floor_bench::kHostAuto;
using floor_bench::kHostCached;
using floor_bench::kHostUser;
using floor_bench::kHostVital;
using floor_bench::Name;

using KorvoSetvault::JsonDocument;
using KorvoSetvault::JsonValue;

constexpr int kInstances = 10000;

std::string InstanceUser(int i) {
  return R"({"name":")" + Name(i) +
         R"(","mtu":9000,"uplinks":["nic0","nic1"],"teaming":{"policy":"failover"}})";
}
constexpr char kInstanceVital[] = R"({"uplinks":["nic0"]})";

// The fastest repetition: on a shared machine the least disturbed run.
double Min(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

// A store file with one host object and kInstances vswitch instances, and
// the example schemas, created once per process.
struct BenchStore {
  BenchStore() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "setvault-read-bench-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) std::abort();
    dir = pattern;
    KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
    KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
    KorvoSetvault::SetStorePath(dir + "/store.db");  // loading writes the shipped defaults
    const auto examples = std::filesystem::path(SETVAULT_SOURCE_DIR) / "examples" / "schemas";
    if (KorvoSetvault::LoadSchemaDefinitions(examples.string()) == 0) std::abort();
    auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
    DBStore::CheckStore(conn, true);  // the store file exists before raw SQL runs
    if (!conn) std::abort();
    sqlite3* db = DBStore::GetSqliteHandle(*conn);
    Exec(db, "BEGIN");
    Insert(db, "host", "system", "", kHostUser, kHostVital, kHostCached, kHostAuto);
    for (int i = 0; i < kInstances; ++i) {
      Insert(db, "vswitch", "net", Name(i), InstanceUser(i), kInstanceVital, nullptr, nullptr);
    }
    Exec(db, "COMMIT");
    store = KorvoSetvault::Setvault::GetStore("");
    // The hand-run side: its own connection with the same settings.
    if (sqlite3_open_v2((dir + "/store.db").c_str(), &hand, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
      std::abort();
    }
    Exec(hand, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
    sqlite3_busy_timeout(hand, DBStore::kBusyTimeoutMs);
    // On a host the schema database is written long before the reads; the
    // schema store checks a file changed in the last seconds more closely.
    sleep(3);
  }
  ~BenchStore() {
    store.reset();
    sqlite3_close_v2(hand);
    std::filesystem::remove_all(dir);
  }
  static void Exec(sqlite3* db, const char* sql) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  }
  static void Insert(sqlite3* db, const char* name, const char* group, const std::string& id,
                     const std::string& user, const char* vital, const char* cached,
                     const char* autoconf) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT INTO Config (Component, ConfigGroup, Name, Identifier, Version, "
                       "UserValue, VitalValue, CachedValue, AutoConfValue) VALUES "
                       "('korvo', ?1, ?2, ?3, '1.0', ?4, ?5, ?6, ?7)",
                       -1, &stmt, nullptr);
    sqlite3_bind_text(stmt, 1, group, -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, name, -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, id.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 4, user.c_str(), -1, SQLITE_STATIC);
    const char* rest[] = {vital, cached, autoconf};
    for (int i = 0; i < 3; ++i) {
      if (rest[i]) {
        sqlite3_bind_text(stmt, 5 + i, rest[i], -1, SQLITE_STATIC);
      } else {
        sqlite3_bind_null(stmt, 5 + i);
      }
    }
    if (sqlite3_step(stmt) != SQLITE_DONE) std::abort();
    sqlite3_finalize(stmt);
  }

  std::string dir;
  std::shared_ptr<KorvoSetvault::Setvault> store;
  sqlite3* hand = nullptr;
};

BenchStore& Store() {
  static BenchStore store;
  return store;
}

// The floor's merge: objects on both sides merge member by member, anything
// else replaces (instance arrays merge by id in the library; these samples
// have none on both sides, so a replacement is the same work).
void Merge(JsonValue& target, JsonValue& source, KorvoSetvault::JsonAllocator& allocator) {
  for (auto& member : source.GetObject()) {
    auto found = target.FindMember(member.name);
    if (found == target.MemberEnd()) {
      target.AddMember(JsonValue(member.name, allocator), JsonValue(member.value, allocator),
                       allocator);
    } else if (found->value.IsObject() && member.value.IsObject()) {
      Merge(found->value, member.value, allocator);
    } else {
      found->value.CopyFrom(member.value, allocator);
    }
  }
}

// Parses the columns in merge order and merges them into one document.
struct Merged {
  JsonDocument document;
  std::string version, creation, modified;
  int revision = -1;
  bool empty = true;
};

void AddColumn(Merged& merged, const unsigned char* text) {
  if (text == nullptr) return;
  if (merged.empty) {
    merged.document.Parse(reinterpret_cast<const char*>(text));
    merged.empty = false;
    return;
  }
  JsonDocument part;
  part.Parse(reinterpret_cast<const char*>(text));
  Merge(merged.document, part, merged.document.GetAllocator());
}

std::string Text(sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  return text ? reinterpret_cast<const char*>(text) : std::string();
}

// Columns of READ_TABLE_CONFIG: Version, AutoConfValue, UserValue, VitalValue,
// CachedValue, DesiredValue, Success, CreationTime, ModifiedTime, Revision.
Merged MergeConfigRow(sqlite3_stmt* stmt, int auto_col, int user_col, int vital_col, int cached_col,
                      int success_col) {
  Merged merged;
  AddColumn(merged, sqlite3_column_text(stmt, vital_col));
  AddColumn(merged, sqlite3_column_text(stmt, cached_col));
  AddColumn(merged, sqlite3_column_text(stmt, auto_col));
  if (sqlite3_column_int(stmt, success_col) == 1) {
    AddColumn(merged, sqlite3_column_text(stmt, user_col));
  }
  return merged;
}

void BM_Get_Store(benchmark::State& state) {
  auto& store = Store().store;
  const KorvoSetvault::SetvaultObjectId id("host", "system", "korvo");
  for (auto _ : state) {
    auto object = store->Get(id);
    if (!object) {
      state.SkipWithError("no object");
      break;
    }
    benchmark::DoNotOptimize(object);
  }
}
BENCHMARK(BM_Get_Store)->ComputeStatistics("min", Min);

void BM_Get_Floor(benchmark::State& state) {
  sqlite3* db = Store().hand;
  sqlite3_stmt* stmt = nullptr;
  std::string_view sql = KorvoSetvault::READ_TABLE_CONFIG.sql();
  sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt,
                     nullptr);
  for (auto _ : state) {
    sqlite3_bind_text(stmt, 1, "host", 4, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, "system", 6, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, "korvo", 5, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 4, "", 0, SQLITE_STATIC);
    if (sqlite3_step(stmt) != SQLITE_ROW) {
      state.SkipWithError("no row");
      break;
    }
    Merged merged = MergeConfigRow(stmt, 1, 2, 3, 4, 6);
    merged.version = Text(stmt, 0);
    merged.creation = Text(stmt, 7);
    merged.modified = Text(stmt, 8);
    merged.revision = sqlite3_column_int(stmt, 9);
    sqlite3_reset(stmt);
    benchmark::DoNotOptimize(merged);
  }
  sqlite3_finalize(stmt);
}
BENCHMARK(BM_Get_Floor)->ComputeStatistics("min", Min);

void BM_GetInstances_Store(benchmark::State& state) {
  auto& store = Store().store;
  auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(
      KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo"));
  for (auto _ : state) {
    auto objects = store->GetInstances(filter);
    if (objects.size() != kInstances) {
      state.SkipWithError("wrong count");
      break;
    }
    benchmark::DoNotOptimize(objects);
  }
}
BENCHMARK(BM_GetInstances_Store)->ComputeStatistics("min", Min)->Unit(benchmark::kMillisecond);

void BM_GetInstances_Floor(benchmark::State& state) {
  sqlite3* db = Store().hand;
  sqlite3_stmt* stmt = nullptr;
  std::string_view sql = KorvoSetvault::GET_INSTANCES.sql();
  sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt,
                     nullptr);
  // Columns of GET_INSTANCES: Version, Success, Identifier, UserValue,
  // VitalValue, CachedValue, AutoConfValue, DesiredValue, CreationTime,
  // ModifiedTime, Revision.
  for (auto _ : state) {
    std::vector<Merged> objects;
    sqlite3_bind_text(stmt, 1, "vswitch", 7, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, "net", 3, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, "korvo", 5, SQLITE_STATIC);
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      Merged merged = MergeConfigRow(stmt, 6, 3, 4, 5, 1);
      merged.version = Text(stmt, 0) + Text(stmt, 2);  // version and instance id
      merged.creation = Text(stmt, 8);
      merged.modified = Text(stmt, 9);
      merged.revision = sqlite3_column_int(stmt, 10);
      objects.push_back(std::move(merged));
    }
    sqlite3_reset(stmt);
    if (objects.size() != kInstances) {
      state.SkipWithError("wrong count");
      break;
    }
    benchmark::DoNotOptimize(objects);
  }
  sqlite3_finalize(stmt);
}
BENCHMARK(BM_GetInstances_Floor)->ComputeStatistics("min", Min)->Unit(benchmark::kMillisecond);

}  // namespace
