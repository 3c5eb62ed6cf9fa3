// The database layer against the same statements run by hand on the sqlite3 C API with a
// statement prepared once. Both sides use the same store file, WAL and synchronous=FULL;
// each write benchmark runs its whole loop in one transaction on both sides, so that the
// figures compare statement cost rather than disk flushes.
//
// Run: db_store_bench --benchmark_repetitions=15 --benchmark_enable_random_interleaving=true
//      --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "db/row_callbacks.h"
#include "db/statements.h"
#include "dbstore/db_store.h"
#include "setvault/host_setup.h"

namespace {

constexpr int kRows = 1000;
const std::string kValue(500, 'v');

// One writer statement of the replacing kind, with its carried-over columns.
constexpr char kReplaceSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, "
    "CreationTime, Revision, Success, DesiredValue, AutoConfValue, UserValue, CachedValue, "
    "VitalValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, "
    "COALESCE( ( SELECT CreationTime FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), (DATETIME(CURRENT_TIMESTAMP)) ), "
    "COALESCE( ( SELECT Revision FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), (0) ) + 1, "
    "COALESCE( ( SELECT Success FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), (1) ), "
    "( SELECT DesiredValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), "
    "( SELECT AutoConfValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), "
    "( SELECT UserValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), "
    "( SELECT CachedValue FROM Config WHERE Identifier = ?1 AND Name = ?2 AND "
    "ConfigGroup = ?3 AND Component = ?4 ), ?6 )";

// The fastest repetition: on a shared machine the least disturbed run.
double Min(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

std::string Id(int i) { return "instance-" + std::to_string(i % kRows); }

// A store with kRows instances of one type, created once per process.
struct BenchStore {
  BenchStore() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "setvault-bench-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) std::abort();
    dir = pattern;
    KorvoSetvault::SetStorePath(dir + "/store.db");
    conn = DBStore::GetConnection(DBStore::kConfigStore, true);
    DBStore::CheckStore(conn, true);  // the store file exists before raw SQL runs
    if (!conn) std::abort();
    sqlite3* db = DBStore::GetSqliteHandle(*conn);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    for (int i = 0; i < kRows; ++i) {
      std::string sql =
          "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, Version, "
          "UserValue, VitalValue) VALUES ('vswitch', 'net', 'korvo', '" +
          Id(i) + "', '1.0', '" + kValue + "', '{\"mtu\":1500}')";
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    }
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    // The hand-run side: its own connection with the same settings.
    sqlite3_open_v2((dir + "/store.db").c_str(), &hand, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_exec(hand, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL", nullptr, nullptr,
                 nullptr);
    sqlite3_busy_timeout(hand, DBStore::kBusyTimeoutMs);
  }
  ~BenchStore() {
    conn.reset();
    sqlite3_close_v2(hand);
    std::filesystem::remove_all(dir);
  }
  std::string dir;
  std::shared_ptr<DBStore::StoreConnection> conn;
  sqlite3* hand = nullptr;
};

BenchStore& Store() {
  static BenchStore store;
  return store;
}

// The work both read sides do per row: touch every column text.
int SumLengths(void* context, int count, char** texts, char**) {
  size_t& total = *static_cast<size_t*>(context);
  for (int i = 0; i < count; ++i) {
    if (texts[i] != nullptr) total += std::char_traits<char>::length(texts[i]);
  }
  return 0;
}

void BM_PointRead_DBStore(benchmark::State& state) {
  auto& conn = Store().conn;
  std::string ids[16];
  for (int i = 0; i < 16; ++i) ids[i] = Id(i * 61);
  size_t total = 0;
  int i = 0;
  for (auto _ : state) {
    auto stmt = KorvoSetvault::READ_TABLE_CONFIG.PrepareAndBind(conn, "vswitch", "net", "korvo",
                                                                ids[i++ & 15]);
    if (DBStore::ExecuteStmt(conn, stmt, SumLengths, &total, DBStore::kBusyTimeoutMs) != 0) {
      state.SkipWithError("read failed");
      break;
    }
  }
  benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_PointRead_DBStore)->ComputeStatistics("min", Min);

void BM_PointRead_Hand(benchmark::State& state) {
  sqlite3* db = Store().hand;
  sqlite3_stmt* stmt = nullptr;
  std::string_view sql = KorvoSetvault::READ_TABLE_CONFIG.sql();
  sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &stmt,
                     nullptr);
  std::string ids[16];
  for (int i = 0; i < 16; ++i) ids[i] = Id(i * 61);
  size_t total = 0;
  int i = 0;
  for (auto _ : state) {
    const std::string& id = ids[i++ & 15];
    sqlite3_bind_text(stmt, 1, "vswitch", 7, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, "net", 3, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, "korvo", 5, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 4, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
    int count = sqlite3_column_count(stmt);
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      for (int c = 0; c < count; ++c) {
        const unsigned char* text = sqlite3_column_text(stmt, c);
        if (text != nullptr)
          total += std::char_traits<char>::length(reinterpret_cast<const char*>(text));
      }
    }
    sqlite3_reset(stmt);
  }
  sqlite3_finalize(stmt);
  benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_PointRead_Hand)->ComputeStatistics("min", Min);

// The same read into a StoreRow map, as the persistence code reads rows (not a pair).
void BM_PointRead_DBStoreIntoStoreRow(benchmark::State& state) {
  auto& conn = Store().conn;
  std::string id = Id(7);
  for (auto _ : state) {
    KorvoSetvault::StoreRow row;
    auto stmt =
        KorvoSetvault::READ_TABLE_CONFIG.PrepareAndBind(conn, "vswitch", "net", "korvo", id);
    DBStore::ExecuteStmt(conn, stmt, KorvoSetvault::RowIntoMapCallback, &row,
                         DBStore::kBusyTimeoutMs);
    benchmark::DoNotOptimize(row);
  }
}
BENCHMARK(BM_PointRead_DBStoreIntoStoreRow)->ComputeStatistics("min", Min);

void BM_Replace_DBStore(benchmark::State& state) {
  auto& conn = Store().conn;
  if (DBStore::BeginTransaction(conn) != 0) std::abort();
  std::string ids[16];
  for (int i = 0; i < 16; ++i) ids[i] = Id(i * 37);
  int i = 0;
  for (auto _ : state) {
    auto stmt = DBStore::internal::Prepare(conn, kReplaceSql, DBStore::kBusyTimeoutMs);
    int index = 1;
    DBStore::internal::Bind(conn, stmt, index, ids[i++ & 15], false);
    DBStore::internal::Bind(conn, stmt, index, "vswitch", false);
    DBStore::internal::Bind(conn, stmt, index, "net", false);
    DBStore::internal::Bind(conn, stmt, index, "korvo", false);
    DBStore::internal::Bind(conn, stmt, index, "1.0", false);
    DBStore::internal::Bind(conn, stmt, index, DBStore::NullableSV(kValue));
    if (DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) != 0) {
      state.SkipWithError("write failed");
      break;
    }
  }
  if (DBStore::CommitTransaction(conn) != 0) std::abort();
}
BENCHMARK(BM_Replace_DBStore)->ComputeStatistics("min", Min);

void BM_Replace_Hand(benchmark::State& state) {
  sqlite3* db = Store().hand;
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v3(db, kReplaceSql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
  if (sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  std::string ids[16];
  for (int i = 0; i < 16; ++i) ids[i] = Id(i * 37);
  int i = 0;
  for (auto _ : state) {
    const std::string& id = ids[i++ & 15];
    sqlite3_bind_text(stmt, 1, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, "vswitch", 7, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 3, "net", 3, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 4, "korvo", 5, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 5, "1.0", 3, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 6, kValue.data(), static_cast<int>(kValue.size()), SQLITE_STATIC);
    if (sqlite3_step(stmt) != SQLITE_DONE) {
      state.SkipWithError("write failed");
      break;
    }
    sqlite3_reset(stmt);
  }
  if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  sqlite3_finalize(stmt);
}
BENCHMARK(BM_Replace_Hand)->ComputeStatistics("min", Min);

// A host-flag read through the per-connection cache (the upgrade context on hot paths).
void BM_ReadKeyValue_Cached(benchmark::State& state) {
  auto& conn = Store().conn;
  DBStore::WriteKeyValue("UPGRADE_CTX", "0", conn);
  std::string value;
  for (auto _ : state) {
    DBStore::ReadKeyValue("UPGRADE_CTX", &value, conn);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_ReadKeyValue_Cached)->ComputeStatistics("min", Min);

// The same inside a write transaction, as the writers read the upgrade context.
void BM_ReadKeyValue_CachedInTransaction(benchmark::State& state) {
  auto& conn = Store().conn;
  if (DBStore::BeginTransaction(conn) != 0) std::abort();
  std::string value;
  for (auto _ : state) {
    DBStore::ReadKeyValue("UPGRADE_CTX", &value, conn);
    benchmark::DoNotOptimize(value);
  }
  DBStore::CancelTransaction(conn);
}
BENCHMARK(BM_ReadKeyValue_CachedInTransaction)->ComputeStatistics("min", Min);

// The same key read by hand with a prepared statement, without any cache.
void BM_ReadKeyValue_Hand(benchmark::State& state) {
  sqlite3* db = Store().hand;
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v3(db, "SELECT Value FROM KeyValue WHERE Key = ?1", -1, SQLITE_PREPARE_PERSISTENT,
                     &stmt, nullptr);
  std::string value;
  for (auto _ : state) {
    sqlite3_bind_text(stmt, 1, "UPGRADE_CTX", 11, SQLITE_STATIC);
    if (sqlite3_step(stmt) == SQLITE_ROW) {
      value.assign(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
    }
    sqlite3_reset(stmt);
    benchmark::DoNotOptimize(value);
  }
  sqlite3_finalize(stmt);
}
BENCHMARK(BM_ReadKeyValue_Hand)->ComputeStatistics("min", Min);

}  // namespace
