// The store's write operations against their floor: the same statements run by hand on the
// sqlite3 C API with statements prepared once, plus the same work on the data (parse of the
// caller's JSON text, JsonValidator::Validate with the operation's option set, the split into
// value columns and their serialization). Both sides use the same store file, WAL and
// synchronous=FULL, and start from the same JSON text per object. Log lines go to a host
// callback that drops them: the library still formats the lines its default threshold lets
// through, but the cost of a syslog daemon is not measured.
//
// Run: store_write_bench --benchmark_repetitions=9 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "db/object_split.h"
#include "dbstore/db_store.h"
#include "document/setvault_document.h"
#include "floor_data.h"
#include "jsonschema/json_validator.h"
#include "schema/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "validation/schema_validation.h"

namespace {

using floor_bench::Name;
using floor_bench::SwitchJson;
using floor_bench::UpdateJson;
using KorvoSetvault::JsonDocument;
using KorvoSetvault::JsonValue;

constexpr int kIds = 16;
constexpr int kInstances = 10000;

// The whole-object write: carried-over history, every value column bound.
constexpr char kWriteCompleteSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, Success, "
    "AutoConfValue, UserValue, VitalValue, CachedValue, CreationTime, Revision ) VALUES ( ?1, ?2, "
    "?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, COALESCE( ( SELECT CreationTime FROM Config WHERE "
    "Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), COALESCE(?11, "
    "(DATETIME(CURRENT_TIMESTAMP))) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (?12) ) + 1 )";
// The stored columns a whole-object write carries over.
constexpr char kReadRowSql[] =
    "SELECT AutoConfValue, UserValue, VitalValue, CachedValue FROM Config WHERE Name = ?1 AND "
    "ConfigGroup = ?2 AND Component = ?3 AND Identifier = ?4";
constexpr char kReadTypeRowsSql[] =
    "SELECT Identifier, AutoConfValue, UserValue, VitalValue, CachedValue FROM Config WHERE "
    "Name = ?1 AND ConfigGroup = ?2 AND Component = ?3";
constexpr char kRevisionMapSql[] =
    "SELECT Identifier, Revision, CreationTime FROM Config WHERE Name = ? AND ConfigGroup = ? "
    "AND Component = ?;";
constexpr char kUpdateUserSql[] =
    "UPDATE Config SET UserValue = ?, VitalValue = ?, CachedValue = ?, DesiredValue = NULL WHERE "
    "Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?";

double Min(const std::vector<double>& values) {
  return *std::min_element(values.begin(), values.end());
}

// A store file and a schema database with the example definitions, plus a hand-run
// connection to the same store with the same settings.
struct Bench {
  Bench() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "setvault-write-bench-XXXXXX").string();
    if (mkdtemp(&pattern[0]) == nullptr) std::abort();
    dir = pattern;
    KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
    KorvoSetvault::SetStorePath(dir + "/store.db");
    KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
    const auto examples = std::filesystem::path(SETVAULT_SOURCE_DIR) / "examples" / "schemas";
    KorvoSetvault::LoadSchemaDefinitions(examples.string());
    store = KorvoSetvault::Setvault::GetStore("");
    schema =
        KorvoSchemaStore::SchemaStore::GetStore(false)->GetSchemaObject("korvo", "net", "vswitch");
    if (!schema) std::abort();
    sqlite3_open_v2((dir + "/store.db").c_str(), &hand, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_exec(hand, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL", nullptr, nullptr,
                 nullptr);
    sqlite3_busy_timeout(hand, DBStore::kBusyTimeoutMs);
  }
  ~Bench() {
    store.reset();
    sqlite3_close_v2(hand);
    std::filesystem::remove_all(dir);
  }
  void Clear() { sqlite3_exec(hand, "DELETE FROM Config", nullptr, nullptr, nullptr); }

  std::string dir;
  std::shared_ptr<KorvoSetvault::Setvault> store;
  std::shared_ptr<KorvoSchemaStore::SchemaObject> schema;
  sqlite3* hand = nullptr;
};

Bench& B() {
  static Bench bench;
  return bench;
}

// --- The hand-run side ------------------------------------------------------------------

sqlite3_stmt* PrepareOnce(const char* sql) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v3(B().hand, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) !=
      SQLITE_OK) {
    std::abort();
  }
  return stmt;
}

void BindText(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}
void BindNullable(sqlite3_stmt* stmt, int index, const std::optional<std::string>& text) {
  if (text) {
    BindText(stmt, index, *text);
  } else {
    sqlite3_bind_null(stmt, index);
  }
}
std::optional<std::string> ColumnText(sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  if (text == nullptr) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}
bool Step(sqlite3_stmt* stmt) {
  const int rc = sqlite3_step(stmt);
  sqlite3_reset(stmt);
  sqlite3_clear_bindings(stmt);
  return rc == SQLITE_DONE;
}

// Parse, validation with `options` and split of one object's JSON text; false when invalid.
bool Prepare(const std::string& text, const std::unordered_set<int>& options,
             KorvoSetvault::SplitParts* parts) {
  JsonDocument data;
  data.Parse(text.c_str(), text.size());
  if (data.HasParseError()) return false;
  JsonDocument result;
  JsonValidator::Validate(B().schema->GetSchemaJson(), data, result, options, "");
  if (!result.IsArray() || !result.Empty()) return false;
  *parts = KorvoSetvault::SplitObjectData(data, B().schema->GetSchemaJson());
  return true;
}

// The statements of one whole-object write with its carried-over auto-configuration.
struct HandWriter {
  HandWriter() : read(PrepareOnce(kReadRowSql)), write(PrepareOnce(kWriteCompleteSql)) {}
  ~HandWriter() {
    sqlite3_finalize(read);
    sqlite3_finalize(write);
  }
  bool Write(const std::string& id, const KorvoSetvault::SplitParts& parts,
             const std::optional<std::string>& auto_conf, int revision_base) {
    BindText(write, 1, id);
    sqlite3_bind_text(write, 2, "vswitch", -1, SQLITE_STATIC);
    sqlite3_bind_text(write, 3, "net", -1, SQLITE_STATIC);
    sqlite3_bind_text(write, 4, "korvo", -1, SQLITE_STATIC);
    sqlite3_bind_text(write, 5, "", 0, SQLITE_STATIC);
    sqlite3_bind_int(write, 6, 1);
    BindNullable(write, 7, auto_conf);
    BindNullable(write, 8, parts.user);
    BindNullable(write, 9, parts.vital);
    BindNullable(write, 10, parts.cached);
    sqlite3_bind_null(write, 11);
    sqlite3_bind_int(write, 12, revision_base);
    return Step(write);
  }
  bool Set(const std::string& id, const std::string& text) {
    KorvoSetvault::SplitParts parts;
    if (!Prepare(text, KorvoSetvault::SetOptions, &parts)) return false;
    sqlite3_bind_text(read, 1, "vswitch", -1, SQLITE_STATIC);
    sqlite3_bind_text(read, 2, "net", -1, SQLITE_STATIC);
    sqlite3_bind_text(read, 3, "korvo", -1, SQLITE_STATIC);
    BindText(read, 4, id);
    std::optional<std::string> auto_conf;
    if (sqlite3_step(read) == SQLITE_ROW) auto_conf = ColumnText(read, 0);
    sqlite3_reset(read);
    return Write(id, parts, auto_conf, 0);
  }
  sqlite3_stmt* read;
  sqlite3_stmt* write;
};

void Merge(JsonValue& target, const JsonValue& source, KorvoSetvault::JsonAllocator& allocator);

// The element of `array` whose "name" equals `name`, or null.
JsonValue* FindNamed(JsonValue& array, const JsonValue& name) {
  for (JsonValue& element : array.GetArray()) {
    if (!element.IsObject()) continue;
    auto id = element.FindMember("name");
    if (id != element.MemberEnd() && id->value == name) return &element;
  }
  return nullptr;
}

// Merges instances (objects identified by "name") into `target`, appending new ones.
void MergeInstances(JsonValue& target, const JsonValue& source,
                    KorvoSetvault::JsonAllocator& allocator) {
  for (const JsonValue& element : source.GetArray()) {
    JsonValue* known = nullptr;
    if (element.IsObject() && element.HasMember("name")) known = FindNamed(target, element["name"]);
    if (known != nullptr) {
      Merge(*known, element, allocator);
    } else {
      target.PushBack(JsonValue(element, allocator), allocator);
    }
  }
}

// Copies the members of `source` into `target`: objects merge member by member, the
// portgroups instance array instance by instance, everything else is replaced.
void Merge(JsonValue& target, const JsonValue& source, KorvoSetvault::JsonAllocator& allocator) {
  for (const auto& member : source.GetObject()) {
    auto existing = target.FindMember(member.name);
    if (existing == target.MemberEnd()) {
      target.AddMember(JsonValue(member.name, allocator), JsonValue(member.value, allocator),
                       allocator);
    } else if (existing->value.IsObject() && member.value.IsObject()) {
      Merge(existing->value, member.value, allocator);
    } else if (existing->value.IsArray() && member.value.IsArray() &&
               std::string(member.name.GetString()) == "portgroups") {
      MergeInstances(existing->value, member.value, allocator);
    } else {
      existing->value.CopyFrom(member.value, allocator);
    }
  }
}

// --- Benchmarks ---------------------------------------------------------------------------

std::vector<std::string> Texts(int mtu_base) {
  std::vector<std::string> texts;
  for (int i = 0; i < kIds; ++i) texts.push_back(SwitchJson(Name(i), mtu_base + i));
  return texts;
}

void BM_SetInTransaction_Store(benchmark::State& state) {
  B().Clear();
  const auto texts = Texts(1500);
  const KorvoSetvault::USERDATA_CONTEXT context;
  B().store->BeginTransaction();
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
    object->SetData(texts[n].c_str());
    B().store->Set(object, context);
  }
  B().store->CommitTransaction();
}
BENCHMARK(BM_SetInTransaction_Store)->ComputeStatistics("min", Min);

// The conditional write: the same work as BM_SetInTransaction_Store plus the revision
// check in the write's own step. Each object's revision is known from its last write.
void BM_SetIfRevisionInTransaction_Store(benchmark::State& state) {
  B().Clear();
  const auto texts = Texts(1500);
  const KorvoSetvault::USERDATA_CONTEXT context;
  std::vector<int> revisions(kIds, KorvoSetvault::kDefaultRevision);
  B().store->BeginTransaction();
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
    object->SetData(texts[n].c_str());
    B().store->SetIfRevision(object, revisions[n], context);
    revisions[n] = revisions[n] < 0 ? 1 : revisions[n] + 1;
  }
  B().store->CommitTransaction();
}
BENCHMARK(BM_SetIfRevisionInTransaction_Store)->ComputeStatistics("min", Min);

void BM_SetInTransaction_Hand(benchmark::State& state) {
  B().Clear();
  const auto texts = Texts(1500);
  std::vector<std::string> ids;
  for (int n = 0; n < kIds; ++n) ids.push_back(Name(n));
  HandWriter writer;
  sqlite3_exec(B().hand, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    if (!writer.Set(ids[n], texts[n])) {
      state.SkipWithError("hand write failed");
      break;
    }
  }
  sqlite3_exec(B().hand, "COMMIT", nullptr, nullptr, nullptr);
}
BENCHMARK(BM_SetInTransaction_Hand)->ComputeStatistics("min", Min);

void BM_SetAutocommit_Store(benchmark::State& state) {
  B().Clear();
  const auto texts = Texts(1500);
  const KorvoSetvault::USERDATA_CONTEXT context;
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
    object->SetData(texts[n].c_str());
    B().store->Set(object, context);
  }
}
BENCHMARK(BM_SetAutocommit_Store)->ComputeStatistics("min", Min)->UseRealTime();

void BM_SetAutocommit_Hand(benchmark::State& state) {
  B().Clear();
  const auto texts = Texts(1500);
  std::vector<std::string> ids;
  for (int n = 0; n < kIds; ++n) ids.push_back(Name(n));
  HandWriter writer;
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    // Read and write in one transaction, as the store's single write does in autocommit.
    sqlite3_exec(B().hand, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    const bool written = writer.Set(ids[n], texts[n]);
    sqlite3_exec(B().hand, "COMMIT", nullptr, nullptr, nullptr);
    if (!written) {
      state.SkipWithError("hand write failed");
      break;
    }
  }
}
BENCHMARK(BM_SetAutocommit_Hand)->ComputeStatistics("min", Min)->UseRealTime();

// Stores the kIds switches both update benchmarks start from.
void SeedSwitches() {
  B().Clear();
  const KorvoSetvault::USERDATA_CONTEXT context;
  for (int n = 0; n < kIds; ++n) {
    auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
    object->SetData(SwitchJson(Name(n), 1500).c_str());
    B().store->Set(object, context);
  }
}

void BM_UpdateInTransaction_Store(benchmark::State& state) {
  SeedSwitches();
  std::vector<std::string> texts;
  for (int n = 0; n < kIds; ++n) texts.push_back(UpdateJson(Name(n), 2000 + n));
  const KorvoSetvault::USERDATA_CONTEXT context;
  B().store->BeginTransaction();
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
    object->SetData(texts[n].c_str());
    B().store->Update(object, context);
  }
  B().store->CommitTransaction();
}
BENCHMARK(BM_UpdateInTransaction_Store)->ComputeStatistics("min", Min);

void BM_UpdateInTransaction_Hand(benchmark::State& state) {
  SeedSwitches();
  std::vector<std::string> texts, ids;
  for (int n = 0; n < kIds; ++n) {
    texts.push_back(UpdateJson(Name(n), 2000 + n));
    ids.push_back(Name(n));
  }
  sqlite3_stmt* read = PrepareOnce(kReadRowSql);
  sqlite3_stmt* update = PrepareOnce(kUpdateUserSql);
  const JsonValue& schema = B().schema->GetSchemaJson();
  sqlite3_exec(B().hand, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  int i = 0;
  for (auto _ : state) {
    const int n = i++ % kIds;
    JsonDocument given;
    given.Parse(texts[n].c_str(), texts[n].size());
    JsonDocument result;
    JsonValidator::Validate(schema, given, result, KorvoSetvault::UpdateOptions, "");
    // The stored parts, merged into one object, then the given members merged in.
    sqlite3_bind_text(read, 1, "vswitch", -1, SQLITE_STATIC);
    sqlite3_bind_text(read, 2, "net", -1, SQLITE_STATIC);
    sqlite3_bind_text(read, 3, "korvo", -1, SQLITE_STATIC);
    BindText(read, 4, ids[n]);
    JsonDocument stored;
    stored.SetObject();
    if (sqlite3_step(read) == SQLITE_ROW) {
      for (int column : {1, 2, 3}) {
        const auto text = ColumnText(read, column);
        if (!text) continue;
        JsonDocument part;
        part.Parse(text->c_str(), text->size());
        Merge(stored, part, stored.GetAllocator());
      }
    }
    sqlite3_reset(read);
    Merge(stored, given, stored.GetAllocator());
    JsonValidator::Validate(schema, stored, result, KorvoSetvault::SetOptions, "");
    if (!result.IsArray() || !result.Empty() || !stored.HasMember("uplinks")) {
      state.SkipWithError("hand update lost data or is invalid");
      break;
    }
    const KorvoSetvault::SplitParts parts = KorvoSetvault::SplitObjectData(stored, schema);
    BindNullable(update, 1, parts.user);
    BindNullable(update, 2, parts.vital);
    BindNullable(update, 3, parts.cached);
    sqlite3_bind_text(update, 4, "vswitch", -1, SQLITE_STATIC);
    sqlite3_bind_text(update, 5, "net", -1, SQLITE_STATIC);
    sqlite3_bind_text(update, 6, "korvo", -1, SQLITE_STATIC);
    BindText(update, 7, ids[n]);
    if (!Step(update)) {
      state.SkipWithError("hand update failed");
      break;
    }
  }
  sqlite3_exec(B().hand, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_finalize(read);
  sqlite3_finalize(update);
}
BENCHMARK(BM_UpdateInTransaction_Hand)->ComputeStatistics("min", Min);

std::vector<std::string> InstanceTexts(int mtu) {
  std::vector<std::string> texts;
  for (int n = 0; n < kInstances; ++n) texts.push_back(SwitchJson(Name(n), mtu));
  return texts;
}

// One iteration writes all kInstances instances (replacing those of the iteration before).
void BM_SetInstances10k_Store(benchmark::State& state) {
  B().Clear();
  const auto texts = InstanceTexts(1500);
  const KorvoSetvault::USERDATA_CONTEXT context;
  for (auto _ : state) {
    std::vector<std::shared_ptr<KorvoSetvault::SetvaultObject>> objects;
    objects.reserve(kInstances);
    for (int n = 0; n < kInstances; ++n) {
      auto object = std::make_shared<KorvoSetvault::SetvaultObject>(
          KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", Name(n)));
      object->SetData(texts[n].c_str());
      objects.push_back(std::move(object));
    }
    B().store->SetInstances(std::move(objects), context);
  }
}
BENCHMARK(BM_SetInstances10k_Store)->ComputeStatistics("min", Min)->Unit(benchmark::kMillisecond);

void BM_SetInstances10k_Hand(benchmark::State& state) {
  B().Clear();
  const auto texts = InstanceTexts(1500);
  std::vector<std::string> ids;
  for (int n = 0; n < kInstances; ++n) ids.push_back(Name(n));
  HandWriter writer;
  sqlite3_stmt* revisions = PrepareOnce(kRevisionMapSql);
  sqlite3_stmt* rows = PrepareOnce(kReadTypeRowsSql);
  for (auto _ : state) {
    sqlite3_exec(B().hand, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    std::vector<KorvoSetvault::SplitParts> parts(kInstances);
    for (int n = 0; n < kInstances; ++n) {
      if (!Prepare(texts[n], KorvoSetvault::SetOptions, &parts[n])) std::abort();
    }
    std::unordered_map<std::string, std::pair<int, std::string>> history;
    for (sqlite3_stmt* stmt : {revisions, rows}) {
      sqlite3_bind_text(stmt, 1, "vswitch", -1, SQLITE_STATIC);
      sqlite3_bind_text(stmt, 2, "net", -1, SQLITE_STATIC);
      sqlite3_bind_text(stmt, 3, "korvo", -1, SQLITE_STATIC);
    }
    while (sqlite3_step(revisions) == SQLITE_ROW) {
      history[*ColumnText(revisions, 0)] = {sqlite3_column_int(revisions, 1),
                                            ColumnText(revisions, 2).value_or("")};
    }
    sqlite3_reset(revisions);
    std::unordered_map<std::string, std::optional<std::string>> auto_conf;
    while (sqlite3_step(rows) == SQLITE_ROW) auto_conf[*ColumnText(rows, 0)] = ColumnText(rows, 1);
    sqlite3_reset(rows);
    for (int n = 0; n < kInstances; ++n) {
      auto found = auto_conf.find(ids[n]);
      auto base = history.find(ids[n]);
      if (!writer.Write(ids[n], parts[n], found == auto_conf.end() ? std::nullopt : found->second,
                        base == history.end() ? 0 : base->second.first)) {
        std::abort();
      }
    }
    sqlite3_exec(B().hand, "COMMIT", nullptr, nullptr, nullptr);
  }
  sqlite3_finalize(revisions);
  sqlite3_finalize(rows);
}
BENCHMARK(BM_SetInstances10k_Hand)->ComputeStatistics("min", Min)->Unit(benchmark::kMillisecond);

}  // namespace
