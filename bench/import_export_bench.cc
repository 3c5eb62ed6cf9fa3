// Import and export of whole configuration documents on stores of 1,000, 10,000 and 100,000
// instances (virtual switches with a port group each, cached members included), against their
// floor: the rows written and read by hand with the sqlite3 C API (one prepared statement, one
// transaction), without validation, splitting or merging.
//
// Counters: ns_per_object (wall time per instance), peak_rss_MiB (the process's peak resident
// memory after the run), doc_MiB (the document's size) and, for the export, export_mem_x_doc:
// the memory the export itself claimed (peak resident size during the call minus the resident
// size before it, freed heap returned to the system first) over the document's size.
//
// Run: import_export_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "dbstore/db_store.h"
#include "setvault/config_document.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"

namespace {

// A document of `count` virtual switches.
std::string Document(int count) {
  std::string text = R"({"korvo":{"net":{"vswitch":[)";
  char buffer[256];
  for (int i = 0; i < count; ++i) {
    std::snprintf(buffer, sizeof buffer,
                  R"(%s{"name":"vs%06d","mtu":%d,"uplinks":["vmnic%d"],)"
                  R"("portgroups":[{"name":"pg%d","vlanId":%d,"activePorts":%d}]})",
                  i == 0 ? "" : ",", i, 1500 + i % 7000, i % 4, i % 100, i % 4096, i % 9);
    text += buffer;
  }
  return text + "]}}}";
}

// A store of its own per size, with the example schemas loaded.
void UseStore(int count) {
  static std::string dir;
  if (dir.empty()) {
    dir = (std::filesystem::temp_directory_path() / "setvault-impexp-bench-XXXXXX").string();
    if (mkdtemp(&dir[0]) == nullptr) std::abort();
    KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
    KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
    KorvoSetvault::SetStorePath(dir + "/defaults.db");
    const auto examples =
        std::filesystem::path(SETVAULT_SOURCE_DIR) / "examples" / "schemas";
    if (KorvoSetvault::LoadSchemaDefinitions(examples.string()) == 0) std::abort();
  }
  KorvoSetvault::SetStorePath(dir + "/store-" + std::to_string(count) + ".db");
}

// Resident and peak resident size of the process, in bytes ("VmRSS", "VmHWM").
long StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(field) + ":";
  while (std::getline(status, line)) {
    if (line.compare(0, prefix.size(), prefix) == 0)
      return std::atol(line.c_str() + prefix.size()) * 1024;
  }
  return 0;
}

// Returns freed heap to the system and restarts the peak resident size at the current one.
void ResetPeak() {
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
}

// Wall time of the timed parts of a run.
class Clock {
 public:
  void Start() { start_ = std::chrono::steady_clock::now(); }
  void Stop() { total_ += std::chrono::steady_clock::now() - start_; }
  double Nanoseconds() const { return std::chrono::duration<double, std::nano>(total_).count(); }

 private:
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::duration total_{};
};

void SetCounters(benchmark::State& state, int count, size_t document_bytes, const Clock& clock) {
  state.counters["ns_per_object"] =
      clock.Nanoseconds() / (static_cast<double>(state.iterations()) * count);
  state.counters["peak_rss_MiB"] = static_cast<double>(StatusBytes("VmHWM")) / (1 << 20);
  state.counters["doc_MiB"] = static_cast<double>(document_bytes) / (1 << 20);
}

void BM_Import(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  UseStore(count);
  const std::string document = Document(count);
  std::vector<KorvoSetvault::ErrorInfo> errors;
  Clock clock;
  for (auto _ : state) {
    clock.Start();
    if (!KorvoSetvault::Import(document, errors)) state.SkipWithError("import refused");
    clock.Stop();
  }
  SetCounters(state, count, document.size(), clock);
}

void BM_Export(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  UseStore(count);
  std::vector<KorvoSetvault::ErrorInfo> errors;
  if (!KorvoSetvault::Import(Document(count), errors)) state.SkipWithError("import refused");
  size_t document_bytes = 0;
  double memory_ratio = 0;
  Clock clock;
  for (auto _ : state) {
    ResetPeak();
    const long before = StatusBytes("VmRSS");
    clock.Start();
    const std::string document = KorvoSetvault::ExportStore();
    clock.Stop();
    benchmark::DoNotOptimize(document.data());
    document_bytes = document.size();
    memory_ratio =
        std::max(memory_ratio, static_cast<double>(StatusBytes("VmHWM") - before) / document_bytes);
  }
  SetCounters(state, count, document_bytes, clock);
  state.counters["export_mem_x_doc"] = memory_ratio;
}

// The floor: the same rows inserted and read back by hand.
void BM_ImportFloor(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  UseStore(count);
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  DBStore::CheckStore(conn, true);  // the store file exists before raw SQL runs
  sqlite3* db = DBStore::GetSqliteHandle(*conn);
  const std::string document = Document(count);
  Clock clock;
  for (auto _ : state) {
    clock.Start();
    sqlite3_exec(db, "BEGIN IMMEDIATE; DELETE FROM Config WHERE Name = 'floor';", nullptr, nullptr,
                 nullptr);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT INTO Config (Identifier, Name, ConfigGroup, Component, UserValue) "
                       "VALUES (?1, 'floor', 'net', 'korvo', ?2)",
                       -1, &stmt, nullptr);
    char id[32];
    for (int i = 0; i < count; ++i) {
      std::snprintf(id, sizeof id, "vs%06d", i);
      sqlite3_bind_text(stmt, 1, id, -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(stmt, 2, document.c_str() + 30, 120, SQLITE_STATIC);
      if (sqlite3_step(stmt) != SQLITE_DONE) state.SkipWithError("insert failed");
      sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    clock.Stop();
  }
  SetCounters(state, count, document.size(), clock);
}

void BM_ExportFloor(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  UseStore(count);
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  DBStore::CheckStore(conn, true);  // the store file exists before raw SQL runs
  sqlite3* db = DBStore::GetSqliteHandle(*conn);
  size_t bytes = 0;
  Clock clock;
  for (auto _ : state) {
    clock.Start();
    std::string text;
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db, "SELECT UserValue FROM Config WHERE Name = 'vswitch'", -1, &stmt,
                       nullptr);
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      text.append(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
      text.push_back(',');
    }
    sqlite3_finalize(stmt);
    clock.Stop();
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  SetCounters(state, count, bytes, clock);
}

void Sizes(benchmark::internal::Benchmark* b) {
  b->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);
}

}  // namespace

BENCHMARK(BM_Import)->Apply(Sizes);
BENCHMARK(BM_ImportFloor)->Apply(Sizes);
BENCHMARK(BM_Export)->Apply(Sizes);
BENCHMARK(BM_ExportFloor)->Apply(Sizes);
